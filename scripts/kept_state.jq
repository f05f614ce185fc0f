# What a camera has kept of an earlier run and a newcomer would wonder about, in one line;
# nothing where all is as at first. Reads what `camera_ctl state` prints.
def duration($seconds): # in the largest unit that is there twice
  first(
    ([31557600, "years"], [86400, "days"], [3600, "hours"], [60, "minutes"], [1, "seconds"])
    | select($seconds >= 2 * .[0] or .[0] == 1)
    | "\($seconds / .[0] | round) \(.[1])");
def clock($offset):
  if $offset >= 60 then "its clock is \(duration($offset)) ahead"
  elif $offset <= -60 then "its clock is \(duration(-$offset)) behind"
  else empty end;
[
  clock(.clock.offset_s),
  (.results.undelivered | select(. > 0) | "undelivered results: \(.)"),
  (.white_list.filter_enable | select(. > 0) | "the white list is checked (\(.))"),
  (select(.name != "Virtual camera") | "its name is \(.name | tojson)")
]
| select(length > 0) | join(", ")
