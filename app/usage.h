#pragma once

// Prints the command-line help that an unknown test name gets.
void printUsage();
