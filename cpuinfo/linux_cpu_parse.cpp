#include "linux_cpu_parse.h"

#include <algorithm>
#include <utility>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view withoutTrailingSpace(std::string_view text) {
    while (!text.empty() && (isBlank(text.back()) || text.back() == '\n')) {
        text.remove_suffix(1);
    }
    return text;
}

int digitValue(char c, int base) {
    int v = -1;
    if (c >= '0' && c <= '9') {
        v = c - '0';
    } else if (c >= 'a' && c <= 'f') {
        v = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
        v = c - 'A' + 10;
    }
    return v < base ? v : -1;
}

// Digits only, the whole text, no sign; false on overflow.
bool parseUnsigned(std::string_view digits, int base, int64_t* value) {
    if (digits.empty()) {
        return false;
    }
    int64_t v = 0;
    for (const char c : digits) {
        const int d = digitValue(c, base);
        if (d < 0 || v > (INT64_MAX - d) / base) {
            return false;
        }
        v = v * base + d;
    }
    *value = v;
    return true;
}

}  // namespace

bool findProcField(std::string_view text, std::string_view key, std::string_view* value) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));

        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        std::string_view name = line.substr(0, colon);
        while (!name.empty() && isBlank(name.back())) {
            name.remove_suffix(1);
        }
        if (name != key) {
            continue;
        }
        line.remove_prefix(colon + 1);
        while (!line.empty() && isBlank(line.front())) {
            line.remove_prefix(1);
        }
        *value = line;
        return true;
    }
    return false;
}

bool parseSysfsDecimal(std::string_view text, int64_t* value) {
    text = withoutTrailingSpace(text);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) {
        text.remove_prefix(1);
    }
    if (!parseUnsigned(text, 10, value)) {
        return false;
    }
    *value = negative ? -*value : *value;
    return true;
}

bool parseSysfsHex(std::string_view text, int64_t* value) {
    return parseUnsigned(withoutTrailingSpace(text), 16, value);
}

bool parseMhzAsHz(std::string_view text, int64_t* hz) {
    text = withoutTrailingSpace(text);
    const size_t dot = text.find('.');
    int64_t mhz = 0;
    if (!parseUnsigned(text.substr(0, dot), 10, &mhz)) {
        return false;
    }
    int64_t fraction = 0;
    if (dot != std::string_view::npos) {
        // Digits past the sixth are below one Hz and dropped, however many there are.
        std::string_view digits = text.substr(dot + 1);
        for (size_t i = 6; i < digits.size(); ++i) {
            if (digitValue(digits[i], 10) < 0) {
                return false;
            }
        }
        digits = digits.substr(0, 6);
        if (!parseUnsigned(digits, 10, &fraction)) {
            return false;
        }
        for (size_t i = digits.size(); i < 6; ++i) {
            fraction *= 10;
        }
    }
    // The whole MHz alone may fit while the sum with the fraction does not.
    if (mhz > (INT64_MAX - fraction) / 1000000) {
        return false;
    }
    *hz = mhz * 1000000 + fraction;
    return true;
}

bool parseMeminfoBytes(std::string_view text, int64_t* bytes) {
    text = withoutTrailingSpace(text);
    constexpr std::string_view unit = " kB";
    if (text.size() < unit.size() || text.substr(text.size() - unit.size()) != unit) {
        return false;
    }
    int64_t kb = 0;
    if (!parseUnsigned(text.substr(0, text.size() - unit.size()), 10, &kb) ||
        kb > INT64_MAX / 1024) {
        return false;
    }
    *bytes = kb * 1024;
    return true;
}

bool isOnlineMemoryBlock(std::string_view onlineText) {
    return withoutTrailingSpace(onlineText) == "1";
}

bool parseCpuList(std::string_view text, std::vector<int64_t>* cpus) {
    // Past any CPU count a kernel supports; it keeps a range from growing the list without bound.
    constexpr int64_t kCpuLimit = 1 << 20;
    text = withoutTrailingSpace(text);
    std::vector<int64_t> list;
    while (true) {
        const size_t comma = std::min(text.find(','), text.size());
        const std::string_view range = text.substr(0, comma);
        const size_t dash = range.find('-');
        int64_t first = 0;
        int64_t last = 0;
        if (!parseUnsigned(range.substr(0, dash), 10, &first) ||
            !parseUnsigned(dash == std::string_view::npos ? range : range.substr(dash + 1), 10,
                           &last) ||
            first > last || last >= kCpuLimit) {
            return false;
        }
        for (int64_t cpu = first; cpu <= last; ++cpu) {
            list.push_back(cpu);
        }
        if (comma == text.size()) {
            break;
        }
        text.remove_prefix(comma + 1);
    }
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    *cpus = std::move(list);
    return true;
}

int countDistinctCores(std::vector<std::vector<int64_t>> coreKeys) {
    std::sort(coreKeys.begin(), coreKeys.end());
    return static_cast<int>(std::unique(coreKeys.begin(), coreKeys.end()) - coreKeys.begin());
}
