#pragma once

// What the command line asks for: three positional words and the filler keywords, which may stand
// in any argument.

#include "fixed_string.h"

// Arguments are cut to this many characters, both as words and when scanned for keywords.
using ArgumentText = FixedString<100>;

struct CommandWords {
    ArgumentText testName;          // argument 1
    ArgumentText thresholdKeyword;  // argument 2, honoured only when it is "exitCodeThreshold"
    ArgumentText divider;           // argument 3
};

struct FillerRequest {
    bool loremIpsum = false;
    bool blenderLog = false;
    bool houdiniLog = false;
};

// Absent arguments leave their words empty; later arguments never become words.
CommandWords readCommandWords(int argc, const char* const* argv);

// Every argument from 1 on is searched, ignoring case, for "LoremIpsum", "BlenderLog" and
// "HoudiniLog" within its first 100 characters.
FillerRequest scanFillerKeywords(int argc, const char* const* argv);
