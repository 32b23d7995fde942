#include "cpu_report.h"

#include "wrap_int32.h"

namespace {

using RowText = FixedString<250>;

void formatTextLine(ReportText& line, const char* label, const char* text) {
    line.clear();
    line.append(label);
    line.append(text);
    line.append('\n');
}

void formatNumberLine(ReportText& line, const char* label, int32_t value) {
    line.clear();
    line.append(label);
    line.appendInt(value);
    line.append('\n');
}

void formatFlagLine(ReportText& line, const char* label, bool value) {
    line.clear();
    // Left-justified in 15 characters; a longer label is neither cut nor padded.
    line.appendPadded(label, 15);
    line.append(": ");
    line.append(value ? "Yes" : "No");
    line.append('\n');
}

struct FlagLine {
    const char* label;
    bool CpuInfo::*flag;
};

const FlagLine kHardwareFlags[] = {
    {"MMX", &CpuInfo::hwMmx},
    {"x64", &CpuInfo::hwX64},
    {"ABM", &CpuInfo::hwAbm},
    {"RDRAND", &CpuInfo::hwRdrand},
    {"BMI1", &CpuInfo::hwBmi1},
    {"BMI2", &CpuInfo::hwBmi2},
    {"ADX", &CpuInfo::hwAdx},
    {"MPX", &CpuInfo::hwMpx},
    {"PREFETCHWT1", &CpuInfo::hwPrefetchwt1},
};
const FlagLine kSimd128Flags[] = {
    {"SSE", &CpuInfo::hwSse},      {"SSE2", &CpuInfo::hwSse2},   {"SSE3", &CpuInfo::hwSse3},
    {"SSSE3", &CpuInfo::hwSsse3},  {"SSE4a", &CpuInfo::hwSse4a}, {"SSE4.1", &CpuInfo::hwSse41},
    {"SSE4.2", &CpuInfo::hwSse42}, {"AES-NI", &CpuInfo::hwAes},  {"SHA", &CpuInfo::hwSha},
};
const FlagLine kSimd256Flags[] = {
    {"AVX", &CpuInfo::hwAvx},   {"XOP", &CpuInfo::hwXop},   {"FMA3", &CpuInfo::hwFma3},
    {"FMA4", &CpuInfo::hwFma4}, {"AVX2", &CpuInfo::hwAvx2},
};
const FlagLine kSimd512Flags[] = {
    {"AVX512-F", &CpuInfo::hwAvx512F},       {"AVX512-CD", &CpuInfo::hwAvx512Cd},
    {"AVX512-PF", &CpuInfo::hwAvx512Pf},     {"AVX512-ER", &CpuInfo::hwAvx512Er},
    {"AVX512-VL", &CpuInfo::hwAvx512Vl},     {"AVX512-BW", &CpuInfo::hwAvx512Bw},
    {"AVX512-DQ", &CpuInfo::hwAvx512Dq},     {"AVX512-IFMA", &CpuInfo::hwAvx512Ifma},
    {"AVX512-VBMI", &CpuInfo::hwAvx512Vbmi},
};

// Builds the report line by line in one scratch line; the report silently stops at its capacity.
class ReportWriter {
  public:
    explicit ReportWriter(ReportText& report) : report_(report) { report_.clear(); }

    void text(const char* label, const char* value) {
        formatTextLine(line_, label, value);
        report_.append(line_);
    }
    void fixed(const char* value) { text(value, nullptr); }
    void blank() { text(nullptr, nullptr); }
    // Record values go through the number lines as 32-bit figures; the wider MHz fields keep only
    // their low 32 bits, read as a signed number.
    void number(const char* label, int64_t value) {
        formatNumberLine(line_, label, low32(value));
        report_.append(line_);
    }
    void flag(const char* label, bool value) {
        formatFlagLine(line_, label, value);
        report_.append(line_);
    }
    // A blank line, the heading and one flag line per feature.
    template <size_t Count>
    void flagSection(const char* heading, const CpuInfo& info, const FlagLine (&lines)[Count]) {
        blank();
        fixed(heading);
        for (const FlagLine& line : lines) {
            flag(line.label, info.*line.flag);
        }
    }

  private:
    ReportText& report_;
    ReportText line_;
};

const char kSeparator[] = "------------------------------";

void writeErrors(ReportWriter& out, const CpuInfo& info) {
    out.fixed(kSeparator);
    out.fixed("ERRORS:");
    out.fixed(info.errors.text);
    out.fixed(kSeparator);
    out.blank();
}

void writeFeatures(ReportWriter& out, const CpuInfo& info) {
    out.text("CPU Vendor String: ", info.vendorString.text);
    if (info.vendorAmd) {
        out.fixed("CPU Vendor: AMD");
    } else if (info.vendorIntel) {
        out.fixed("CPU Vendor: Intel");
    } else {
        out.fixed("CPU Vendor: Unknown");
    }
    out.blank();
    out.fixed("OS Features:");
    out.flag("OS AVX", info.osAvx);
    out.flag("OS AVX512", info.osAvx512);
    out.flagSection("Hardware Features:", info, kHardwareFlags);
    out.flagSection("SIMD: 128-bit", info, kSimd128Flags);
    out.flagSection("SIMD: 256-bit", info, kSimd256Flags);
    out.flagSection("SIMD: 512-bit", info, kSimd512Flags);
    out.blank();
    out.fixed("AVX Summary:");
    out.flag("Can use AVX", info.hwAvx && info.osAvx);
    out.flag("Can use AVX512", info.hwAvx512F && info.osAvx512);
    out.blank();
}

void writeRam(ReportWriter& out, const CpuInfo& info) {
    out.number("RAM  GB:   ", info.ramGb);
    out.text("RAM  Type: ", info.ramType.text);
    out.number("RAM  Mhz:  ", info.ramMhz);
    out.blank();
}

void writeCpu(ReportWriter& out, const CpuInfo& info) {
    out.text("CPU Description:     ", info.description.text);
    out.text("CPU:                 ", info.shortName.text);
    out.number("CPU Core Count:      ", info.logicalCpus);
    out.number("CPU Core Count (HW): ", info.physicalCpus);
    out.fixed(info.hyperthreading ? "CPU Hyperthreading:  Enabled"
                                  : "CPU Hyperthreading:  Disabled");
    out.number("CPU MHz in label: ", info.mhzInLabel);
    out.number("CPU MHz Info:     ", info.mhzInfo);
    out.number("CPU MHz Max:      ", info.mhzMax);
    out.number("CPU MHz Current:  ", info.mhzCurrent);
    out.number("CPU MHz summed (calculated, HT adjusted):  ", info.mhzSummed);
}

// The table is printed in groups of ten cores, each group as five rows of left-aligned cells.
struct CoreRows {
    RowText ht, mhzInfo, mhzMin, mhzMax, mhzCur;

    void add(const CpuInfo& info, int core) {
        ht.appendPadded(info.coreHt[core] ? "true" : "-", 6);
        mhzInfo.appendNumber(info.coreMhzInfo[core], 6);
        mhzMin.appendNumber(info.coreMhzMin[core], 6);
        mhzMax.appendNumber(info.coreMhzMax[core], 6);
        // The current clock gets a wider cell than the other rows.
        mhzCur.appendNumber(info.coreMhzCur[core], 10);
    }

    void flush(ReportWriter& out) {
        out.text("Core HT:       ", ht.text);
        out.text("Core MHz Info: ", mhzInfo.text);
        out.text("Core MHz Min:  ", mhzMin.text);
        out.text("Core MHz Max:  ", mhzMax.text);
        out.text("Core MHz Cur:  ", mhzCur.text);
        out.blank();
        *this = CoreRows();
    }
};

void writePerCore(ReportWriter& out, const CpuInfo& info) {
    // Gathering keeps the count within the tables; the cap only keeps a broken record from
    // reading past them.
    const int cores = info.logicalCpus < kMaxCores ? info.logicalCpus : kMaxCores;
    CoreRows rows;
    for (int core = 0; core < cores; ++core) {
        rows.add(info, core);
        if (core % 10 == 9) {
            rows.flush(out);
        }
    }
    // A remainder group is flushed, including the empty one a negative count leaves; a multiple
    // of ten (0 included) has nothing left.
    if (cores % 10 != 0) {
        rows.flush(out);
    }
    out.number("CPU MHz summed (calculated per Core, HT adjusted): ", info.mhzSummedPerCore);
    out.number("CPU MHz summed (measured current, HT adjusted):    ", info.mhzSummedMeasured);
    out.blank();
}

void writeClosing(ReportWriter& out) {
    out.fixed("NOTE: Korvo reads the information provided by the OS or BIOS.");
    out.fixed(
        "Not all information is available on every OS. And not all GHz information provided by "
        "the system is reliable.");
    out.blank();
}

}  // namespace

ReportText& buildCpuInfoReport(ReportText& report, const CpuInfo& info, bool showCpuFeatures,
                               bool showRam, bool showPerCore) {
    ReportWriter out(report);
    if (info.errors.isNotEmpty()) {
        writeErrors(out, info);
    }
    if (showCpuFeatures) {
        writeFeatures(out, info);
    }
    if (showRam) {
        writeRam(out, info);
    }
    writeCpu(out, info);
    if (showPerCore) {
        writePerCore(out, info);
    }
    writeClosing(out);
    return report;
}
