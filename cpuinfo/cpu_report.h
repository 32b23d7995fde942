#pragma once

// The plain-text processor report, built entirely in fixed-capacity strings.

#include <cstdint>

#include "cpu_info.h"
#include "fixed_string.h"

using ReportText = FixedString<5000>;

ReportText& buildCpuInfoReport(ReportText& report, const CpuInfo& info, bool showCpuFeatures,
                               bool showRam, bool showPerCore);
