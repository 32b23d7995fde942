#pragma once

// Canned text whose only purpose is to make the output larger, so that the caller's log handling
// is exercised. Each block goes to standard output with puts, one call per line or block.

void printLoremIpsum();
void printBlenderLog();
void printHoudiniLog();
