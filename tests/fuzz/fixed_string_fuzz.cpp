// FixedString against a std::string model: the input is a sequence of operations, each applied to
// a FixedString and to the model, and after each one both must hold the same text. Capacities 10
// and 250 are exercised, the smallest and the one every brand and error text goes through.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "fixed_string.h"
#include "fuzz_check.h"

namespace {

char upperAscii(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string upperAll(std::string s) {
    for (char& c : s) {
        c = upperAscii(c);
    }
    return s;
}

bool isTrimmed(char c) {
    return c == '\0' || c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

int modelFind(const std::string& text, const std::string& needle, int start) {
    if (needle.empty()) {
        return -1;
    }
    const size_t from = start < 0 ? 0 : static_cast<size_t>(start);
    if (from > text.size()) {
        return -1;
    }
    const size_t at = upperAll(text).find(upperAll(needle), from);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

std::string blanks(long long n) {
    return std::string(n > 0 ? static_cast<size_t>(n) : 0, ' ');
}

std::string cut(const std::string& s, size_t n) {
    return s.size() > n ? s.substr(0, n) : s;
}

// The padding rule: the sign of the width picks the side, and text plus padding stay within the
// capacity.
std::string padded(const std::string& s, int width, int capacity) {
    const std::string fitted = cut(s, capacity);
    long long pad =
        std::llabs(static_cast<long long>(width)) - static_cast<long long>(fitted.size());
    pad = std::min<long long>(pad, capacity - static_cast<long long>(fitted.size()));
    if (width < 0) {
        return blanks(pad) + fitted;
    }
    return width > 0 ? fitted + blanks(pad) : fitted;
}

bool allSignedDigits(const std::string& s) {
    for (size_t i = 0; i < s.size(); ++i) {
        if (!(s[i] >= '0' && s[i] <= '9') && !(i == 0 && s[i] == '-')) {
            return false;
        }
    }
    return true;
}

// Digits only (after an optional '-'), at most nine of them, so that the value is plain.
bool smallNumber(const std::string& s) {
    return s.size() - (!s.empty() && s[0] == '-') <= 9;
}

long double numberValue(const std::string& s) {
    if (s.empty() || s == "-") {
        return 0;
    }
    return static_cast<long double>(std::stoll(s));
}

// The decimal reading: whichever of '.' and ',' comes last separates the fraction, the other one
// is dropped, and only 1 to 6 fraction characters count.
void checkParseDecimal(const std::string& text, float value, bool ok) {
    const size_t dot = text.rfind('.');
    const size_t comma = text.rfind(',');
    const bool commaSeparates =
        comma != std::string::npos && (dot == std::string::npos || comma > dot);
    const char separator = commaSeparates ? ',' : '.';
    std::string t;
    for (const char c : text) {
        if (c != (commaSeparates ? '.' : ',')) {
            t += c;
        }
    }
    const size_t at = t.rfind(separator);
    if (at == std::string::npos) {
        FUZZ_CHECK(ok == allSignedDigits(t));
        if (!ok) {
            FUZZ_CHECK(value == 0.0f);
        } else if (smallNumber(t)) {
            FUZZ_CHECK(value == static_cast<float>(numberValue(t)));
        }
        return;
    }
    const std::string whole = t.substr(0, at);
    const std::string fraction = t.substr(at + 1);
    if (!allSignedDigits(whole)) {
        FUZZ_CHECK(!ok && value == 0.0f);
        return;
    }
    const bool fractionOk = allSignedDigits(fraction);
    FUZZ_CHECK(ok == fractionOk);
    if (!smallNumber(whole) || !smallNumber(fraction)) {
        return;
    }
    long double expected = numberValue(whole);
    if (fractionOk && !fraction.empty() && fraction.size() <= 6) {
        expected += numberValue(fraction) / std::pow(10.0L, static_cast<int>(fraction.size()));
    }
    FUZZ_CHECK(std::fabs(static_cast<long double>(value) - expected) <=
               1e-6L * (std::fabs(numberValue(whole)) + 1));
}

template <int N>
struct Pair {
    FixedString<N> s;
    std::string m;

    void check() const {
        FUZZ_CHECK(s.length <= N);
        FUZZ_CHECK(s.length == m.size());
        FUZZ_CHECK(memcmp(s.text, m.data(), m.size()) == 0);
        FUZZ_CHECK(s.text[s.length] == '\0');
    }
};

template <int N>
void step(Pair<N>& p, FuzzedDataProvider& in) {
    // Text arguments go in as C strings, so the model sees them up to their first NUL.
    const std::string raw = in.ConsumeRandomLengthString(300);
    const std::string arg(raw.c_str());
    const int number = in.ConsumeIntegralInRange<int>(-300, 300);
    const char ch = in.ConsumeIntegral<char>();
    std::string& m = p.m;
    FixedString<N>& s = p.s;
    const int length = static_cast<int>(m.size());

    switch (in.ConsumeIntegralInRange<int>(0, 22)) {
        case 0:
            s.assign(arg.c_str());
            m = cut(arg, N);
            break;
        case 1:
            s.append(arg.c_str());
            m = cut(m + arg, N);
            break;
        case 2:
            s.append(FixedString<250>(arg.c_str()));
            m = cut(m + cut(arg, 250), N);
            break;
        case 3:
            s.append(ch);
            m = cut(m + ch, N);
            break;
        case 4:
            s.appendPadded(arg.c_str(), number);
            m = cut(m + padded(arg, number, N), N);
            break;
        case 5: {
            const int64_t v = in.ConsumeIntegral<int64_t>();
            const signed char width = in.ConsumeIntegral<signed char>();
            s.appendNumber(v, width);
            m = cut(m + padded(std::to_string(v), width, N), N);
            break;
        }
        case 6: {
            const int v = in.ConsumeIntegral<int>();
            s.appendInt(v);
            m = cut(m + std::to_string(v), N);
            break;
        }
        case 7: {
            // Callers only ever cut; a length beyond the text would expose stale bytes.
            const int n = in.ConsumeIntegralInRange<int>(-3, length);
            s.setLength(static_cast<int16_t>(n));
            m = m.substr(0, n < 0 ? 0 : n);
            break;
        }
        case 8: {
            s.trim();
            size_t end = m.size();
            while (end > 0 && isTrimmed(m[end - 1])) {
                --end;
            }
            size_t begin = 0;
            while (begin < end && isTrimmed(m[begin])) {
                ++begin;
            }
            m = m.substr(begin, end - begin);
            break;
        }
        case 9: {
            const int count = in.ConsumeIntegralInRange<int>(-300, 300);
            s.remove(number, count);
            const long long head = std::min<long long>(std::max(number, 0), length);
            const long long from = static_cast<long long>(number) + count;
            if (from > head) {
                m = m.substr(0, head) + (from < length ? m.substr(from) : "");
            }
            break;
        }
        case 10: {
            const size_t at = static_cast<size_t>(std::min(std::max(number, 0), length));
            if (in.ConsumeBool()) {
                s.insert(number, arg.c_str());
                m = cut(m.substr(0, at) + arg + m.substr(at), N);
            } else {
                s.insert(number, FixedString<10>(arg.c_str()));
                m = cut(m.substr(0, at) + cut(arg, 10) + m.substr(at), N);
            }
            break;
        }
        case 11: {
            // Each search starts at the previous hit, so a match that closes up over the hit is
            // removed too, one that closes up before it is not.
            const std::string needle = cut(arg, 8);
            s.removeAll(needle.c_str());
            for (int from = 0, hit; (hit = modelFind(m, needle, from)) >= 0; from = hit) {
                m.erase(hit, needle.size());
            }
            break;
        }
        case 12: {
            const FixedString<N> returned = s.removeChars(ch);
            std::string kept;
            for (const char c : m) {
                if (upperAscii(c) != upperAscii(ch)) {
                    kept += c;
                }
            }
            m = kept;
            FUZZ_CHECK(std::string(returned.text, returned.length) == m);
            break;
        }
        case 13: {
            const std::string needle = cut(arg, 12);
            FUZZ_CHECK(s.find(needle.c_str(), number) == modelFind(m, needle, number));
            FUZZ_CHECK(s.find(FixedString<250>(needle.c_str()), number) ==
                       modelFind(m, needle, number));
            break;
        }
        case 14: {
            const int from = (number >= 1 && number < length) ? number : 0;
            int exact = -1;
            int folded = -1;
            for (int i = length - 1; i >= from; --i) {
                exact = m[i] == ch ? i : exact;
                folded = upperAscii(m[i]) == upperAscii(ch) ? i : folded;
            }
            FUZZ_CHECK(s.findChar(ch, number) == exact);
            FUZZ_CHECK(s.findCharIgnoreCase(ch, number) == folded);
            // The start is read as unsigned: negative means from the end.
            int last = -1;
            const int back =
                static_cast<unsigned>(number) < static_cast<unsigned>(length) ? number : length - 1;
            for (int i = back; i >= 0 && last < 0; --i) {
                last = m[i] == ch ? i : -1;
            }
            FUZZ_CHECK(s.findLastChar(ch, number) == last);
            break;
        }
        case 15: {
            const std::string other = cut(arg, 250);
            const int r = s.compareIgnoreCase(FixedString<250>(arg.c_str()));
            const std::string a = upperAll(m);
            const std::string b = upperAll(other);
            // std::string compares bytes as unsigned char, which is what the comparison calls for.
            const int expected = a.compare(b);
            FUZZ_CHECK((r < 0) == (expected < 0) && (r > 0) == (expected > 0));
            FUZZ_CHECK(s.equalsIgnoreCase(FixedString<250>(arg.c_str())) == (a == b));
            FUZZ_CHECK(s.equalsIgnoreCase(arg.c_str()) == (a == upperAll(arg)));
            break;
        }
        case 16: {
            const std::string affix = cut(arg, 250);
            const bool possible = !affix.empty() && !m.empty() && affix.size() <= m.size();
            const std::string a = upperAll(m);
            const std::string b = upperAll(affix);
            FUZZ_CHECK(s.startsWithIgnoreCase(arg.c_str()) ==
                       (possible && a.compare(0, b.size(), b) == 0));
            FUZZ_CHECK(s.endsWithIgnoreCase(arg.c_str()) ==
                       (possible && a.compare(a.size() - b.size(), b.size(), b) == 0));
            break;
        }
        case 17: {
            bool ok = false;
            const float value = s.parseDecimal(&ok);
            checkParseDecimal(m, value, ok);
            FUZZ_CHECK(s.parseDecimal(nullptr) == value || std::isnan(value));
            break;
        }
        case 18: {
            // A raw write into the buffer, as an OS query makes, then the length from the first
            // NUL; the bytes not written keep what the buffer held.
            std::string buffer(s.text, N);
            const size_t written = std::min<size_t>(raw.size(), N);
            memcpy(s.text, raw.data(), written);
            buffer.replace(0, written, raw.substr(0, written));
            s.syncLength();
            m = buffer.substr(0, std::min(buffer.find('\0'), buffer.size()));
            break;
        }
        case 19: {
            // A copy is a value of its own: editing it leaves the original as it was.
            FixedString<N> copy = s;
            copy.remove(0, 1);
            copy.append("x");
            FUZZ_CHECK(std::string(copy.text, copy.length) ==
                       cut(m.substr(m.empty() ? 0 : 1) + "x", N));
            break;
        }
        case 20: {
            s.clear();
            m.clear();
            const FixedString<N> zero{};
            FUZZ_CHECK(memcmp(&s, &zero, sizeof(s)) == 0);
            for (const char c : s.text) {
                FUZZ_CHECK(c == '\0');
            }
            break;
        }
        case 21:
            s.assign(nullptr);
            s.append(static_cast<const char*>(nullptr));
            m.clear();
            break;
        default:
            FUZZ_CHECK(s.isEmpty() == m.empty() && s.isNotEmpty() == !m.empty());
            break;
    }
    p.check();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    Pair<10> small;
    Pair<250> large;
    for (int i = 0; i < 64 && in.remaining_bytes() > 0; ++i) {
        if (in.ConsumeBool()) {
            step(small, in);
        } else {
            step(large, in);
        }
    }
    return 0;
}
