#pragma once

// The names of arm64 cores by the MIDR fields Linux prints in /proc/cpuinfo.

struct ArmCpuPart {
    int implementer;     // "CPU implementer", e.g. 0x41 for Arm Ltd
    int part;            // "CPU part", e.g. 0xd0c
    const char* vendor;  // e.g. "ARM"
    const char* core;    // e.g. "Neoverse-N1"
};

// The known part, or nullptr.
const ArmCpuPart* findArmCpuPart(int implementer, int part);
