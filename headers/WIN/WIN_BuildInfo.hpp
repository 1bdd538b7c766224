#pragma once

namespace win {

// Fixed when the library was compiled; taken from SOURCE_DATE_EPOCH where that is set, so that two builds are alike.
// Any thread.

const char* BuildDate();    ///< "Mar  2 2017", the day padded to two characters
const char* BuildTime();    ///< "hh:mm:ss"
const char* BuildUserId();  ///< the account that built it

}  // namespace win
