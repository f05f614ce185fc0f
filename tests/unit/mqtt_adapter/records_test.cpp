// Texts in the binary records.
#include "ivs_records.h"

#include <gtest/gtest.h>

namespace {

using qex::IVS_EVENT_PARAM;
using qex::RecordText;

TEST(Records, ATextEndsAtItsNul) {
  IVS_EVENT_PARAM event = {};
  memcpy(&event, "AB\0CD", 5);
  EXPECT_EQ(RecordText(event, 0), "AB");
  EXPECT_EQ(RecordText(event, 16), "");
}

TEST(Records, ATextWithoutANulRunsOnIntoTheNextField) {
  IVS_EVENT_PARAM event = {};
  memcpy(&event, "0123456789ABCDEFblue", 20);
  EXPECT_EQ(RecordText(event, 0), "0123456789ABCDEFblue");
}

TEST(Records, ATextNeverRunsPastTheRecord) {
  IVS_EVENT_PARAM event;
  memset(&event, 'A', sizeof(event));
  EXPECT_EQ(RecordText(event, 0).size(), 188U);
  EXPECT_EQ(RecordText(event, 48).size(), 140U);
}

}  // namespace
