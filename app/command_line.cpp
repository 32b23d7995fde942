#include "command_line.h"

CommandWords readCommandWords(int argc, const char* const* argv) {
    CommandWords words;  // all three start empty
    if (argc >= 2) {
        words.testName.assign(argv[1]);
    }
    if (argc >= 3) {
        words.thresholdKeyword.assign(argv[2]);
    }
    if (argc >= 4) {
        words.divider.assign(argv[3]);
    }
    return words;
}

FillerRequest scanFillerKeywords(int argc, const char* const* argv) {
    FillerRequest request;
    ArgumentText scratch;
    for (int i = 1; i < argc; ++i) {
        scratch.assign(argv[i]);
        // A flag once set stays set, so a block is printed once however often it is asked for.
        if (scratch.find("LoremIpsum") >= 0) {
            request.loremIpsum = true;
        }
        if (scratch.find("BlenderLog") >= 0) {
            request.blenderLog = true;
        }
        if (scratch.find("HoudiniLog") >= 0) {
            request.houdiniLog = true;
        }
    }
    return request;
}
