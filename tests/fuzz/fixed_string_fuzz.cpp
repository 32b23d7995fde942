// FixedString against a std::string model: the input is a sequence of operations, each applied to
// a FixedString and to the model, and after each one both must hold the same text. Capacities 10
// and 250 are exercised, the smallest and the one every brand and error text goes through.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "fixed_string.h"
#include "fuzz_check.h"

namespace {

constexpr size_t npos = std::string::npos;

std::string upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
    return s;
}

int at(size_t i) {
    return i == npos ? -1 : static_cast<int>(i);
}

int modelFind(const std::string& text, const std::string& needle, int start) {
    return needle.empty() ? -1 : at(upper(text).find(upper(needle), std::max(start, 0)));
}

// The sign of the width picks the side; text plus padding stay within the capacity.
std::string padded(const std::string& s, int width, long long capacity) {
    const std::string fitted = s.substr(0, capacity);
    const long long n = static_cast<long long>(fitted.size());
    const std::string blanks(std::clamp(std::llabs(width) - n, 0LL, capacity - n), ' ');
    return width < 0 ? blanks + fitted : fitted + blanks;
}

template <int N>
void step(FixedString<N>& s, std::string& m, FuzzedDataProvider& in) {
    // Text arguments go in as C strings, so the model sees them up to their first NUL.
    const std::string arg(in.ConsumeRandomLengthString(300).c_str());
    const int number = in.ConsumeIntegralInRange<int>(-300, 300);
    const char ch = in.ConsumeIntegral<char>();
    const int length = static_cast<int>(m.size());
    const int variant = in.ConsumeIntegralInRange<int>(0, 2);

    switch (in.ConsumeIntegralInRange<int>(0, 11)) {
        case 0:
            s.assign(arg.c_str());
            m = arg.substr(0, N);
            break;
        case 1:
            variant == 0   ? s.append(arg.c_str())
            : variant == 1 ? s.append(FixedString<250>(arg.c_str()))
                           : s.append(ch);
            m = (m + (variant == 2 ? std::string(1, ch) : arg.substr(0, 250))).substr(0, N);
            break;
        case 2: {
            const int64_t v = in.ConsumeIntegral<int64_t>();
            const signed char width = in.ConsumeIntegral<signed char>();
            variant == 0   ? s.appendPadded(arg.c_str(), number)
            : variant == 1 ? s.appendNumber(v, width)
                           : s.appendInt(static_cast<int>(v));
            const std::string text = variant == 0   ? padded(arg, number, N)
                                     : variant == 1 ? padded(std::to_string(v), width, N)
                                                    : std::to_string(static_cast<int>(v));
            m = (m + text).substr(0, N);
            break;
        }
        case 3: {
            // Callers only ever cut; a length beyond the text would expose stale bytes.
            const int n = in.ConsumeIntegralInRange<int>(-3, length);
            s.setLength(static_cast<int16_t>(n));
            m.resize(std::max(n, 0));
            break;
        }
        case 5: {
            const int count = in.ConsumeIntegralInRange<int>(-300, 300);
            s.remove(number, count);
            const int head = std::clamp(number, 0, length);
            m = number + count > head
                    ? m.substr(0, head) + m.substr(std::min(number + count, length))
                    : m;
            break;
        }
        case 6: {
            const size_t i = std::clamp(number, 0, length);
            variant ? s.insert(number, FixedString<10>(arg.c_str()))
                    : s.insert(number, arg.c_str());
            m = (m.substr(0, i) + arg.substr(0, variant ? 10 : npos) + m.substr(i)).substr(0, N);
            break;
        }
        case 7: {
            // Each search starts at the previous hit, so a match that closes up over the hit is
            // removed too, one that closes up before it is not.
            const std::string needle = arg.substr(0, 8);
            s.removeAll(needle.c_str());
            for (int from = 0, hit; (hit = modelFind(m, needle, from)) >= 0; from = hit) {
                m.erase(hit, needle.size());
            }
            break;
        }
        case 8: {
            const FixedString<N> returned = s.removeChars(ch);
            m.erase(std::remove_if(m.begin(), m.end(),
                                   [&](char c) { return upper({c}) == upper({ch}); }),
                    m.end());
            FUZZ_CHECK(std::string(returned.text, returned.length) == m);
            break;
        }
        case 9: {
            const std::string needle = arg.substr(0, 12);
            FUZZ_CHECK(s.find(needle.c_str(), number) == modelFind(m, needle, number) &&
                       s.find(FixedString<250>(needle.c_str()), number) ==
                           modelFind(m, needle, number));
            // A start out of range means from the first character; findLastChar reads it as
            // unsigned, so a negative one means from the end.
            const size_t from = number >= 1 && number < length ? number : 0;
            FUZZ_CHECK(s.findChar(ch, number) == at(m.find(ch, from)));
            FUZZ_CHECK(s.findCharIgnoreCase(ch, number) == at(upper(m).find(upper({ch}), from)));
            const unsigned back = static_cast<unsigned>(number) < m.size() ? number : length - 1;
            FUZZ_CHECK(s.findLastChar(ch, number) == (length ? at(m.rfind(ch, back)) : -1));
            break;
        }
        case 10: {
            const std::string a = upper(m);
            const std::string b = upper(arg.substr(0, 250));
            FUZZ_CHECK(s.equalsIgnoreCase(FixedString<250>(arg.c_str())) == (a == b));
            FUZZ_CHECK(s.equalsIgnoreCase(arg.c_str()) == (a == upper(arg)));
            const bool possible = !b.empty() && !a.empty() && b.size() <= a.size();
            FUZZ_CHECK(s.startsWithIgnoreCase(arg.c_str()) == (possible && a.find(b) == 0));
            FUZZ_CHECK(s.endsWithIgnoreCase(arg.c_str()) ==
                       (possible && a.compare(a.size() - b.size(), npos, b) == 0));
            break;
        }
        default:
            // Clearing zeroes every byte; null reads as empty.
            variant ? s.clear() : s.assign(nullptr);
            s.append(static_cast<const char*>(nullptr));
            m.clear();
            FUZZ_CHECK(!variant || std::count(s.text, s.text + N + 1, '\0') == N + 1);
            break;
    }
    FUZZ_CHECK(s.length == static_cast<int>(m.size()) && s.text[s.length] == '\0');
    FUZZ_CHECK(memcmp(s.text, m.data(), m.size()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    FixedString<10> small;
    FixedString<250> large;
    std::string smallModel;
    std::string largeModel;
    for (int i = 0; i < 64 && in.remaining_bytes() > 0; ++i) {
        in.ConsumeBool() ? step(small, smallModel, in) : step(large, largeModel, in);
    }
    return 0;
}
