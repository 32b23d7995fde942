#pragma once

// A text of at most N characters stored inline: a 16-bit length, the characters and a terminator.
// It never allocates and never fails; every operation silently truncates at N. Records that hold
// it stay plain data, so they can be copied byte by byte and built without touching the heap.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "leading_int.h"

namespace fixed_string_detail {

// Letter case is folded on ASCII only. The locale-dependent toupper would fold bytes >= 0x80 in a
// single-byte locale (Latin-1) and turns undefined for a negative char; here those bytes always
// compare as themselves, whatever locale the application installed.
inline unsigned char upper(char c) {
    const unsigned char u = static_cast<unsigned char>(c);
    return (u >= 'a' && u <= 'z') ? static_cast<unsigned char>(u - ('a' - 'A')) : u;
}

inline bool isTrimmed(char c) {
    return c == '\0' || c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

// Only the low 16 bits of a C string's length count, as the length field itself is 16 bits wide.
inline int cStringLength(const char* s) {
    return static_cast<uint16_t>(strlen(s));
}

}  // namespace fixed_string_detail

template <int N>
struct FixedString {
    // setLength takes a signed 16-bit length, and the edits below cut through it.
    static_assert(N > 0 && N <= INT16_MAX, "capacity must fit a signed 16-bit length");
    static constexpr int capacity = N;

    uint16_t length;
    char text[N + 1];

    FixedString() { clear(); }
    explicit FixedString(const char* s) { assign(s); }

    void clear() { memset(static_cast<void*>(this), 0, sizeof(*this)); }
    bool isEmpty() const { return length == 0; }
    bool isNotEmpty() const { return length != 0; }

    void assign(const char* s) {
        if (s == nullptr) {
            clear();
            return;
        }
        const int n = fit(fixed_string_detail::cStringLength(s), N);
        memmove(text, s, n);  // s may point into this text
        memset(text + n, 0, N + 1 - n);
        length = static_cast<uint16_t>(n);
    }

    // For callers that wrote into text directly (an OS query filling the buffer).
    void syncLength() {
        const void* nul = memchr(text, '\0', N);
        if (nul != nullptr) {
            length = static_cast<uint16_t>(static_cast<const char*>(nul) - text);
        } else {
            length = N;
            text[N] = '\0';
        }
    }

    // Cuts, never pads: a length beyond the current text only moves the terminator.
    void setLength(int16_t n) {
        const int cut = n < 0 ? 0 : (n > N ? N : n);
        text[cut] = '\0';
        length = static_cast<uint16_t>(cut);
    }

    template <int M>
    void append(const FixedString<M>& s) {
        appendBytes(s.text, s.length);
    }
    void append(const char* s) {
        if (s != nullptr) {
            appendBytes(s, fixed_string_detail::cStringLength(s));
        }
    }
    void append(char c) { appendBytes(&c, 1); }

    // The sign of width picks the side of the blanks: negative right-aligns, positive
    // left-aligns, so a table cell is one call either way.
    void appendPadded(const char* s, int width) {
        const int fitted = s == nullptr ? 0 : fit(fixed_string_detail::cStringLength(s), N);
        const long long magnitude = width < 0 ? -static_cast<long long>(width) : width;
        long long pad = magnitude - fitted;
        if (pad < 0) {
            pad = 0;
        }
        if (pad > N - fitted) {
            pad = N - fitted;
        }
        if (width < 0) {
            appendBlanks(static_cast<int>(pad));
        }
        appendBytes(s, fitted);
        if (width > 0) {
            appendBlanks(static_cast<int>(pad));
        }
    }

    // The width is signed on purpose: plain char is unsigned on arm64, where a negative width
    // would turn into a wide left-aligned field.
    void appendNumber(const int64_t& v, signed char width) {
        char digits[32];
        snprintf(digits, sizeof(digits), "%lld", static_cast<long long>(v));
        digits[20] = '\0';
        appendPadded(digits, width);
    }

    void appendInt(int v) {
        char digits[16];
        snprintf(digits, sizeof(digits), "%d", v);
        append(digits);
    }

    int findChar(char c, int start) const { return findCharFrom(c, start, false); }
    int findCharIgnoreCase(char c, int start) const { return findCharFrom(c, start, true); }

    // start is taken as unsigned, so -1 means "from the end".
    int findLastChar(char c, int start) const {
        int i = static_cast<unsigned>(start) < length ? start : length - 1;
        for (; i >= 0; --i) {
            if (text[i] == c) {
                return i;
            }
        }
        return -1;
    }

    template <int M>
    int find(const FixedString<M>& needle, int start) const {
        return findBytes(needle.text, needle.length, start);
    }
    int find(const char* needle, int start = 0) const {
        if (needle == nullptr) {
            return -1;
        }
        return findBytes(needle, fixed_string_detail::cStringLength(needle), start);
    }

    template <int M>
    int compareIgnoreCase(const FixedString<M>& other) const {
        return compareBytes(other.text, other.length);
    }

    template <int M>
    bool equalsIgnoreCase(const FixedString<M>& other) const {
        if (length != other.length) {
            return false;
        }
        return sameIgnoreCase(text, other.text, length);
    }
    bool equalsIgnoreCase(const char* other) const {
        return other != nullptr && fixed_string_detail::cStringLength(other) == length &&
               sameIgnoreCase(text, other, length);
    }

    bool startsWithIgnoreCase(const char* p) const {
        const int n = affixLength(p);
        return n > 0 && sameIgnoreCase(text, p, n);
    }
    bool endsWithIgnoreCase(const char* p) const {
        const int n = affixLength(p);
        return n > 0 && sameIgnoreCase(text + length - n, p, n);
    }

    void trim() {
        int end = length;
        while (end > 0 && fixed_string_detail::isTrimmed(text[end - 1])) {
            --end;
        }
        int begin = 0;
        while (begin < end && fixed_string_detail::isTrimmed(text[begin])) {
            ++begin;
        }
        memmove(text, text + begin, end - begin);
        setLength(static_cast<int16_t>(end - begin));
    }

    // Keeps [0, start) and everything from start + count on. A negative start keeps nothing before
    // the cut but still ends it at start + count: remove(-1, n) drops n - 1 characters (a search
    // for a blank before a match yields -1 when there is none).
    void remove(int start, int count) {
        const int head = start < 0 ? 0 : start;
        const long long tail = static_cast<long long>(start) + count;
        if (head >= length || tail <= head) {
            return;
        }
        // length <= N always; saying tail >= N as well lets the compiler see the move below stays
        // inside the buffer, where it otherwise warns about a constant count beyond N.
        if (tail >= length || tail >= N) {
            setLength(static_cast<int16_t>(head));
            return;
        }
        const int from = static_cast<int>(tail);
        memmove(text + head, text + from, length - from);
        setLength(static_cast<int16_t>(length - (from - head)));
    }

    template <int M>
    void insert(int pos, const FixedString<M>& s) {
        insertBytes(pos, s.text, s.length);
    }
    void insert(int pos, const char* s) {
        if (s != nullptr) {
            insertBytes(pos, s, fixed_string_detail::cStringLength(s));
        }
    }

    template <int M>
    void removeAll(const FixedString<M>& needle) {
        removeAllBytes(needle.text, needle.length);
    }
    void removeAll(const char* needle) {
        if (needle != nullptr) {
            removeAllBytes(needle, fixed_string_detail::cStringLength(needle));
        }
    }

    FixedString removeChars(char c) {
        const unsigned char u = fixed_string_detail::upper(c);
        for (int i = length - 1; i >= 0; --i) {
            if (fixed_string_detail::upper(text[i]) == u) {
                remove(i, 1);
            }
        }
        return *this;
    }

    // Reads "1234.5", "1.234,5" or "1,234.5": whichever of '.' and ',' comes last is the decimal
    // separator and the other is a thousands mark. Only 1 to 6 fraction digits are honoured, and
    // the sign of the integer part is not applied to the fraction (-1.5 reads as -0.5); both are
    // the historical behaviour that existing clock figures were derived with.
    float parseDecimal(bool* ok) const {
        FixedString copy = *this;
        const bool commaIsSeparator = copy.findLastChar(',', -1) > copy.findLastChar('.', -1);
        const char separator = commaIsSeparator ? ',' : '.';
        copy.removeChars(commaIsSeparator ? '.' : ',');

        const int at = copy.findLastChar(separator, -1);
        if (at < 0) {
            const bool valid = isSignedDigits(copy.text, copy.length);
            setOk(ok, valid);
            return valid ? static_cast<float>(leadingInt(copy.text)) : 0.0f;
        }
        copy.text[at] = '\0';
        const char* integerPart = copy.text;
        const char* fractionPart = copy.text + at + 1;
        const int fractionDigits = copy.length - at - 1;
        if (!isSignedDigits(integerPart, at)) {
            setOk(ok, false);
            return 0.0f;
        }
        const float whole = static_cast<float>(leadingInt(integerPart));
        if (!isSignedDigits(fractionPart, fractionDigits)) {
            setOk(ok, false);
            return whole;
        }
        setOk(ok, true);
        if (fractionDigits < 1 || fractionDigits > 6) {
            return whole;
        }
        float scale = 1.0f;
        for (int i = 0; i < fractionDigits; ++i) {
            scale *= 10.0f;
        }
        return whole + static_cast<float>(leadingInt(fractionPart)) / scale;
    }

  private:
    static int fit(int n, int limit) { return n < limit ? n : limit; }

    static void setOk(bool* ok, bool value) {
        if (ok != nullptr) {
            *ok = value;
        }
    }

    static bool isSignedDigits(const char* s, int n) {
        for (int i = 0; i < n; ++i) {
            const bool digit = s[i] >= '0' && s[i] <= '9';
            if (!digit && !(i == 0 && s[i] == '-')) {
                return false;
            }
        }
        return true;
    }

    static bool sameIgnoreCase(const char* a, const char* b, int n) {
        for (int i = 0; i < n; ++i) {
            if (fixed_string_detail::upper(a[i]) != fixed_string_detail::upper(b[i])) {
                return false;
            }
        }
        return true;
    }

    // A prefix or suffix is looked for only when it is non-empty and not longer than this text;
    // returns 0 otherwise.
    int affixLength(const char* p) const {
        if (p == nullptr || length == 0) {
            return 0;
        }
        const int n = fit(fixed_string_detail::cStringLength(p), 250);
        return n <= length ? n : 0;
    }

    void appendBytes(const char* s, int n) {
        const int room = N - length;
        const int count = fit(n, room);
        if (count > 0) {
            memcpy(text + length, s, count);
            length = static_cast<uint16_t>(length + count);
        }
        text[length] = '\0';
    }

    void appendBlanks(int n) {
        const int count = fit(n, N - length);
        if (count > 0) {
            memset(text + length, ' ', count);
            length = static_cast<uint16_t>(length + count);
            text[length] = '\0';
        }
    }

    int findCharFrom(char c, int start, bool ignoreCase) const {
        const int from = (start >= 1 && start < length) ? start : 0;
        const unsigned char wanted = ignoreCase ? fixed_string_detail::upper(c) : c;
        for (int i = from; i < length; ++i) {
            const unsigned char have = ignoreCase ? fixed_string_detail::upper(text[i]) : text[i];
            if (have == wanted) {
                return i;
            }
        }
        return -1;
    }

    int compareBytes(const char* other, int otherLength) const {
        const int n = fit(length, otherLength);
        for (int i = 0; i < n; ++i) {
            const unsigned char a = fixed_string_detail::upper(text[i]);
            const unsigned char b = fixed_string_detail::upper(other[i]);
            if (a != b) {
                return a < b ? -1 : 1;
            }
        }
        if (length == otherLength) {
            return 0;
        }
        return length < otherLength ? -1 : 1;
    }

    // Candidates are screened by a rolling sum of the upper-cased bytes, which is cheap to slide
    // one position on, and only a matching sum is confirmed byte by byte.
    int findBytes(const char* needle, int needleLength, int start) const {
        if (needleLength == 0) {
            return -1;
        }
        if (start < 0) {
            start = 0;
        }
        if (start > length - needleLength) {  // not needleLength + start: start may be INT_MAX
            return -1;
        }
        if (needleLength == length) {
            return compareBytes(needle, needleLength) == 0 ? 0 : -1;
        }
        uint32_t wantedSum = 0;
        uint32_t windowSum = 0;
        for (int i = 0; i < needleLength; ++i) {
            wantedSum += fixed_string_detail::upper(needle[i]);
            windowSum += fixed_string_detail::upper(text[start + i]);
        }
        for (int pos = start;; ++pos) {
            if (windowSum == wantedSum && sameIgnoreCase(text + pos, needle, needleLength)) {
                return pos;
            }
            if (pos + needleLength >= length) {
                return -1;
            }
            windowSum += fixed_string_detail::upper(text[pos + needleLength]);
            windowSum -= fixed_string_detail::upper(text[pos]);
        }
    }

    void insertBytes(int pos, const char* s, int n) {
        const int at = pos < 0 ? 0 : fit(pos, length);
        FixedString result;
        result.appendBytes(text, at);
        result.appendBytes(s, n);
        result.appendBytes(text + at, length - at);
        *this = result;
    }

    void removeAllBytes(const char* needle, int needleLength) {
        int from = 0;
        for (int hit; (hit = findBytes(needle, needleLength, from)) >= 0; from = hit) {
            remove(hit, needleLength);
        }
    }
};

static_assert(std::is_trivially_copyable<FixedString<10>>::value,
              "FixedString must stay copyable by plain byte copy");
