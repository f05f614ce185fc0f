// Everything that hostcheck looks at, by name.
#pragma once

namespace hostcheck {

struct Check {
  const char* name;
  const char* what;
};

// The life of the adapter.
constexpr char kCallOrder[] = "calls-in-order";
constexpr char kOneThread[] = "calls-on-one-thread";
constexpr char kSignalConnected[] = "signal-connected";
constexpr char kConnectionTold[] = "connection-told";
constexpr char kRequestArguments[] = "request-arguments";
constexpr char kPictures[] = "pictures";
constexpr char kNotReentered[] = "not-reentered";
constexpr char kDestroyedLast[] = "destroyed-last";
// The duties of docs/delivery.md, one row each, and what follows from them.
constexpr char kSubscribedWithLink[] = "subscribed-with-link";
constexpr char kOneAtATime[] = "one-result-at-a-time";
constexpr char kReleased[] = "result-released";
constexpr char kPositiveAnswer[] = "positive-answer-only";
constexpr char kConfirmedOnce[] = "confirmed-once";
constexpr char kConfirmed[] = "acknowledged-is-confirmed";
constexpr char kStale[] = "stale-answer-ignored";
constexpr char kNotSentAgain[] = "not-sent-again";
constexpr char kSecondDropped[] = "second-redelivery-dropped";
constexpr char kOtherWithheld[] = "withheld-after-another-record";
constexpr char kEmptiedWithheld[] = "withheld-after-emptied-queue";
constexpr char kNothingLost[] = "nothing-lost-while-waiting";
constexpr char kInOrder[] = "results-in-order";
// The platform.
constexpr char kEventsInOrder[] = "events-in-order";
constexpr char kEventsUrgent[] = "events-time-sensitive";
constexpr char kEventsDelayed[] = "events-delayed";
constexpr char kEventsCleared[] = "events-cleared";
constexpr char kEventsRemoved[] = "events-removed";
constexpr char kEventsReleased[] = "events-released";
constexpr char kEventsThread[] = "events-on-one-thread";
constexpr char kBusReply[] = "bus-reply-untouched";
constexpr char kBusTimeout[] = "bus-timeout";
constexpr char kBusUnlistened[] = "bus-unlistened";
constexpr char kDatabaseMissingKey[] = "database-missing-key";
constexpr char kBase64RoundTrip[] = "base64-round-trip";
constexpr char kJsonText[] = "json-text";

/// In the order of the report.
constexpr Check kChecks[] = {
    {kCallOrder, "create_adapter, Initialize once, GetMessageNames, then the rest"},
    {kOneThread, "every call and message comes on the event service's thread"},
    {kSignalConnected, "SignalPushMessage is connected before the first publication"},
    {kConnectionTold, "OnMQTTConnected and OnMQTTDisconnected, by turns, as the link changes"},
    {kRequestArguments,
     "a request comes with an announced name, {\"type\", \"body\"} and its version"},
    {kPictures, "the image function gives each picture a text of its own, in time for its result"},
    {kNotReentered, "nothing is called while a bus request keeps the thread"},
    {kDestroyedLast, "destory_adapter comes last, and the host ends by itself"},
    {kSubscribedWithLink,
     "published names are subscribed while the link is up, and unsubscribed while it is down"},
    {kOneAtATime, "a result is handed over only when the one before is acknowledged or lost"},
    {kReleased, "a result that causes no publication is released"},
    {kPositiveAnswer, "OnMessagePublished only on the broker's positive answer to that message"},
    {kConfirmedOnce, "OnMessagePublished once for each publication"},
    {kConfirmed, "OnMessagePublished for each result that the broker has acknowledged"},
    {kStale, "what was published before a loss of the link is not confirmed after it"},
    {kNotSentAgain, "what was published before a loss of the link is not sent again"},
    {kSecondDropped, "a second re-delivered record is dropped while one is under way"},
    {kOtherWithheld,
     "no confirmation of a re-delivered record once another was published meanwhile"},
    {kEmptiedWithheld, "no confirmation of a re-delivered record once a request emptied the queue"},
    {kNothingLost, "what comes while a bus request keeps the thread is handled afterwards"},
    {kInOrder, "results come in the order in which they were recognised, each once"},
    {kEventsInOrder, "posted messages keep their order, from another thread too"},
    {kEventsUrgent, "time-sensitive messages keep their order among themselves"},
    {kEventsDelayed, "delayed messages come by their time, those of one time in order"},
    {kEventsCleared, "Clear drops what is pending, delayed too, and has released it on return"},
    {kEventsRemoved, "Clear hands what it removed to who asks for it"},
    {kEventsReleased, "what a message carries is let go of before the next is delivered"},
    {kEventsThread, "messages are delivered on the thread of the calls"},
    {kBusReply, "a request without an answer leaves the reply alone"},
    {kBusTimeout, "a request that is not answered does not end before its time"},
    {kBusUnlistened, "no message of a topic comes after RemoveListenMessage"},
    {kDatabaseMissingKey, "a key that is not there is not read, and leaves the value alone"},
    {kBase64RoundTrip, "Base64 gives back what it was given"},
    {kJsonText, "JSON becomes compact text, and text that is no JSON is refused"},
};

}  // namespace hostcheck
