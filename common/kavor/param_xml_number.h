// param_xml_number.h - the reader's integer conversion: the value and end
// of the number at `p` exactly as strtoimax(p, &end, 0) (signed) or
// strtoumax(p, &end, 0) (unsigned) give them, with the forms the writer
// makes computed inline: blanks, an optional '-', then decimal digits
// without a leading zero or "0x"/"0X" and hexadecimal digits, few enough
// that no overflow is possible. Every other text (octal, '+', other white
// space, long digit strings, no digits at all) goes to the C library, so the
// result never differs from the library's.
#ifndef KAVOR_PARAM_XML_NUMBER_H
#define KAVOR_PARAM_XML_NUMBER_H

#include <cinttypes>
#include <cstdint>
#include <cstdlib>

namespace param_xml_number {

inline unsigned hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<unsigned>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<unsigned>(c - 'A' + 10);
    return 16;
}

// The library's result as the bits of a uintmax_t (a signed result in two's
// complement), and *endp as the library sets it.
template <bool Signed>
inline uintmax_t parse(const char *p, char **endp)
{
    const char *s = p;
    while (*s == ' ')
        s++;
    const bool neg = *s == '-';
    if (neg)
        s++;
    uint64_t v = 0;
    const char *q;
    if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        const char *d = s + 2;
        for (q = d; hex_digit(*q) < 16; q++)
            v = v * 16 + hex_digit(*q);
        // 15 digits can't reach 2^63; 16 fit an unsigned value exactly
        const long n = q - d;
        if (n == 0 || n > 16 || (n == 16 && (Signed || neg)))
            goto library;
    } else {
        for (q = s; *q >= '0' && *q <= '9'; q++)
            v = v * 10 + static_cast<unsigned>(*q - '0');
        // 18 digits can't reach 2^63; 19 fit an unsigned value exactly
        const long n = q - s;
        if (n == 0 || (n > 1 && s[0] == '0') || n > 19 || (n == 19 && (Signed || neg)))
            goto library;
    }
    *endp = const_cast<char *>(q);
    return neg ? static_cast<uintmax_t>(0u - v) : static_cast<uintmax_t>(v);
library:
    if (Signed)
        return static_cast<uintmax_t>(std::strtoimax(p, endp, 0));
    return std::strtoumax(p, endp, 0);
}

}  // namespace param_xml_number

#endif
