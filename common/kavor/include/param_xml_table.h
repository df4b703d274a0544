/// @file param_xml_table.h
/// Table macros: every row of a descriptor table written from the structure
/// type and the field name alone. Offsets, element sizes and counts come from
/// offsetof and sizeof, so that no number is written by hand, and every
/// mistake that the compiler can see stops the build with a message that
/// begins with "kavor table:" (an integer field of a width the kind doesn't
/// take, a float field that is no float or double, a string capacity over
/// the field, a count over the array, a count field that is no int, a
/// pointer where an array is needed and the reverse).
///
/// Each macro expands to a brace initialiser of all fields of its record in
/// order, valid as a constant initialiser in C11 and in C++17 with
/// -Wall -Wextra -Werror. Included by param_xml.h; don't include it alone.
///
/// Naming: PX_<KIND> takes one value, PX_<KIND>_ARR a whole array,
/// PX_<KIND>_ARR_N the first n entries of an array, PX_<KIND>_CIA an array
/// whose number of valid entries is kept in an int field, PX_<KIND>_COB an
/// array of buffer pointers with an array of their counts, and
/// PX_<KIND>_COB_CIA both. PX_UINT forms end in _HEX ("0xff") or _HEXU
/// ("0xFF") for hexadecimal text. Arguments come in the order: structure
/// type, field(s), element name, then table or node type.
///
/// Example:
/// @code
/// struct port { int32_t speed; uint16_t vlan[4]; char label[16]; };
/// static struct pdesc port_table[] = {
///     PX_SINT(struct port, speed, "speed"),
///     PX_UINT_ARR_HEX(struct port, vlan, "vlan"),
///     PX_STRI(struct port, label, "label"),
///     PX_END,
/// };
/// @endcode
#ifndef PARAM_XML_TABLE_H
#define PARAM_XML_TABLE_H

#include <stddef.h>
#include <stdint.h>

/// Largest row count whose index text fits the codec's nine digits.
#define PX_COUNT_MAX 999999999

/* ---- type probes, one set per language ------------------------------- */

#ifdef __cplusplus
#include <type_traits>

namespace px_detail {
template <class X> using raw_t = typename std::remove_reference<X>::type;
template <class X> using val_t = typename std::decay<X>::type;
template <class X> constexpr bool is_int()
{
    return (std::is_integral<val_t<X>>::value && !std::is_same<val_t<X>, bool>::value) ||
           std::is_enum<val_t<X>>::value;
}
template <class X> constexpr bool is_float()
{
    return std::is_same<val_t<X>, float>::value || std::is_same<val_t<X>, double>::value;
}
} // namespace px_detail

// A constant 0 that stops the build with `msg` unless `cond` holds.
#define PX__CHECK(cond, msg) ([]() { static_assert((cond), msg); return 0; }())
#define PX__IS_INT(e) (::px_detail::is_int<decltype(e)>())
#define PX__IS_FLOAT(e) (::px_detail::is_float<decltype(e)>())
#define PX__IS_C_INT(e) (std::is_same<::px_detail::val_t<decltype(e)>, int>::value)
#define PX__IS_HEAD(e) (std::is_same<::px_detail::val_t<decltype(e)>, zhead_t>::value)
#define PX__IS_RECORD(e) (std::is_class<::px_detail::raw_t<decltype(e)>>::value)
#define PX__IS_ARRAY(e) (std::is_array<::px_detail::raw_t<decltype(e)>>::value)
#define PX__IS_POINTER(e) (std::is_pointer<::px_detail::raw_t<decltype(e)>>::value)

#else /* C11 */

#define PX__CHECK(cond, msg) \
    (0 * (int)sizeof(struct { int px_ok_; _Static_assert((cond), msg); }))
#define PX__IS_INT(e)                                                              \
    _Generic((e), char: 1, signed char: 1, unsigned char: 1, short: 1,            \
             unsigned short: 1, int: 1, unsigned int: 1, long: 1, unsigned long: 1, \
             long long: 1, unsigned long long: 1, default: 0)
#define PX__IS_FLOAT(e) _Generic((e), float: 1, double: 1, default: 0)
#define PX__IS_C_INT(e) _Generic((e), int: 1, default: 0)
#define PX__IS_HEAD(e) _Generic((e), zhead_t: 1, default: 0)
#if defined(__GNUC__)
/* 12 is the record class of __builtin_classify_type. */
#define PX__IS_RECORD(e) (__builtin_classify_type(e) == 12)
#define PX__IS_ARRAY(e) (!__builtin_types_compatible_p(__typeof__(e), __typeof__(&(e)[0])))
#define PX__IS_POINTER(e) (__builtin_types_compatible_p(__typeof__(e), __typeof__(&*(e))))
#else
#define PX__IS_RECORD(e) 1
#define PX__IS_ARRAY(e) 1
#define PX__IS_POINTER(e) 1
#endif

#endif /* __cplusplus */

/* ---- field probes ------------------------------------------------------ */

#define PX__M(T, f) (((T *)0)->f)
#define PX__SZ(T, f) sizeof(PX__M(T, f))
#define PX__ESZ(T, f) sizeof(PX__M(T, f)[0])
#define PX__N(T, f) (PX__SZ(T, f) / PX__ESZ(T, f))
/* size of one element of buffer 0 of a pointer array */
#define PX__BSZ(T, b) sizeof(*PX__M(T, b)[0])

#define PX__W1248(w) ((w) == 1 || (w) == 2 || (w) == 4 || (w) == 8)

/* ---- checks, each a constant 0 ----------------------------------------- */

#define PX__CHK_ARRAY(T, f) \
    PX__CHECK(PX__IS_ARRAY(PX__M(T, f)), \
              "kavor table: this form takes an array field; a single value takes the form without _ARR")
#define PX__CHK_COUNT(n) \
    PX__CHECK((n) >= 1 && (n) <= PX_COUNT_MAX, "kavor table: count must be 1 to 999999999")
#define PX__CHK_N(T, f, n) \
    PX__CHECK((n) >= 1 && (size_t)(n) <= PX__N(T, f), "kavor table: count over the array")
#define PX__CHK_INT1(T, f) \
    PX__CHECK(PX__IS_INT(PX__M(T, f)) && PX__W1248(PX__SZ(T, f)), \
              "kavor table: field must be one integer of 1, 2, 4 or 8 bytes (an array takes _ARR)")
#define PX__CHK_INTA(T, f) \
    PX__CHECK(PX__IS_INT(PX__M(T, f)[0]) && PX__W1248(PX__ESZ(T, f)), \
              "kavor table: array elements must be integers of 1, 2, 4 or 8 bytes")
#define PX__CHK_FLT1(T, f) \
    PX__CHECK(PX__IS_FLOAT(PX__M(T, f)), \
              "kavor table: field must be one float or double (an array takes _ARR)")
#define PX__CHK_FLTA(T, f) \
    PX__CHECK(PX__IS_FLOAT(PX__M(T, f)[0]), "kavor table: array elements must be float or double")
#define PX__CHK_CIA(T, c) \
    PX__CHECK(PX__IS_C_INT(PX__M(T, c)), "kavor table: the count field must be an int")
#define PX__CHK_COB(T, b, k) \
    (PX__CHK_ARRAY(T, b) + PX__CHK_ARRAY(T, k) + \
     PX__CHECK(PX__IS_POINTER(PX__M(T, b)[0]), "kavor table: buffers must be an array of pointers") + \
     PX__CHECK(PX__IS_C_INT(PX__M(T, k)[0]), "kavor table: buffer counts must be an array of int") + \
     PX__CHECK(PX__N(T, b) == PX__N(T, k), \
               "kavor table: buffer pointers and buffer counts must have the same number of entries") + \
     PX__CHK_COUNT(PX__N(T, b)))
#define PX__CHK_INTB(T, b) \
    PX__CHECK(PX__IS_INT(*PX__M(T, b)[0]) && PX__W1248(PX__BSZ(T, b)), \
              "kavor table: buffer elements must be integers of 1, 2, 4 or 8 bytes")
#define PX__CHK_FLTB(T, b) \
    PX__CHECK(PX__IS_FLOAT(*PX__M(T, b)[0]), "kavor table: buffer elements must be float or double")
#define PX__CHK_RECB(T, b) \
    PX__CHECK(PX__IS_RECORD(*PX__M(T, b)[0]), "kavor table: buffer elements must be structures")
#define PX__CHK_STRA(T, f) \
    (PX__CHK_ARRAY(T, f) + \
     PX__CHECK(PX__IS_INT(PX__M(T, f)[0]) && PX__ESZ(T, f) == 1, \
               "kavor table: a string field must be a character array"))
#define PX__CHK_ENUM(e) \
    PX__CHECK(PX__IS_INT(e) && sizeof(e) == sizeof(int), \
              "kavor table: an enumerated value must be an int or an enum of int size")
#define PX__CHK_REC(e) PX__CHECK(PX__IS_RECORD(e), "kavor table: field must be a structure")
#define PX__CHK_PTR(T, p) \
    (PX__CHECK(PX__IS_POINTER(PX__M(T, p)), "kavor table: PX_STRUM takes a pointer field") + \
     PX__CHECK(PX__IS_RECORD(*PX__M(T, p)), "kavor table: PX_STRUM's pointer must point to structures"))
#define PX__CHK_HEAD(e) PX__CHECK(PX__IS_HEAD(e), "kavor table: a list field must be a zhead_t")
#define PX__CHK_NODE(N) \
    PX__CHECK(sizeof(N) >= sizeof(struct znode), \
              "kavor table: a list node must begin with a struct znode")
#define PX__CHK_FMT(fmt) \
    PX__CHECK((fmt) == PT_FMT_DEC || (fmt) == PT_FMT_HEXL || (fmt) == PT_FMT_HEXU, \
              "kavor table: format must be PT_FMT_DEC, PT_FMT_HEXL or PT_FMT_HEXU")

/* ---- the row ----------------------------------------------------------- */

/* All eleven fields of struct pdesc, in order; the run-time fields start at 0. */
#define PX__ROW(count, type, off, boff, aoff, size, name, sub, aux)                         \
    {                                                                                      \
        0, 0, (int)(count), (int)(type), (size_t)(off), (size_t)(boff), (size_t)(aoff),   \
            (size_t)(size), (name), (struct pdesc *)(sub), (intptr_t)(aux)                  \
    }

/* Shared shapes: a single value, a whole array, the first n, a counted array,
 * buffers, buffers with a counted array. `chk1`/`chka`/`chkb` are the
 * element checks of the kind. */
#define PX__ONE(T, f, type, name, sub, aux, chk) \
    PX__ROW(1 + (chk), type, offsetof(T, f), 0, 0, PX__SZ(T, f), name, sub, aux)
#define PX__ARR(T, f, type, name, sub, aux, chk) \
    PX__ROW(PX__N(T, f) + PX__CHK_ARRAY(T, f) + PX__CHK_COUNT(PX__N(T, f)) + (chk), type, \
            offsetof(T, f), 0, 0, PX__ESZ(T, f), name, sub, aux)
#define PX__ARRN(T, f, n, type, name, sub, aux, chk) \
    PX__ROW((n) + PX__CHK_ARRAY(T, f) + PX__CHK_N(T, f, n) + (chk), type, offsetof(T, f), 0, 0, \
            PX__ESZ(T, f), name, sub, aux)
#define PX__CIA(T, f, c, type, name, sub, aux, chk) \
    PX__ROW(PX__N(T, f) + PX__CHK_ARRAY(T, f) + PX__CHK_COUNT(PX__N(T, f)) + PX__CHK_CIA(T, c) + \
                (chk), (type) | PT_F_CIA, offsetof(T, f), 0, offsetof(T, c), PX__ESZ(T, f), \
            name, sub, aux)
#define PX__COB(T, b, k, type, name, sub, chk) \
    PX__ROW(PX__N(T, b) + PX__CHK_COB(T, b, k) + (chk), (type) | PT_F_COB, offsetof(T, b), \
            offsetof(T, k), 0, PX__BSZ(T, b), name, sub, 0)
#define PX__COBCIA(T, b, k, c, type, name, sub, chk) \
    PX__ROW(PX__N(T, b) + PX__CHK_COB(T, b, k) + PX__CHK_CIA(T, c) + (chk), \
            (type) | PT_F_COB | PT_F_CIA, offsetof(T, b), offsetof(T, k), offsetof(T, c), \
            PX__BSZ(T, b), name, sub, 0)

/* ======================================================================== */
/** @name Signed integers (PT_SINT): int8_t to int64_t, decimal text
 *  `T` is the structure type, `f` an integer field or array of 1, 2, 4 or 8
 *  bytes, `name` the element name. _CIA takes the int field `c` that holds
 *  the number of valid entries; _COB takes the array `b` of buffer pointers
 *  and the int array `k` of their element counts.
 *  @{ */
#define PX_SINT(T, f, name) PX__ONE(T, f, PT_SINT, name, 0, 0, PX__CHK_INT1(T, f))
#define PX_SINT_ARR(T, f, name) PX__ARR(T, f, PT_SINT, name, 0, 0, PX__CHK_INTA(T, f))
#define PX_SINT_ARR_N(T, f, n, name) PX__ARRN(T, f, n, PT_SINT, name, 0, 0, PX__CHK_INTA(T, f))
#define PX_SINT_CIA(T, f, c, name) PX__CIA(T, f, c, PT_SINT, name, 0, 0, PX__CHK_INTA(T, f))
#define PX_SINT_COB(T, b, k, name) PX__COB(T, b, k, PT_SINT, name, 0, PX__CHK_INTB(T, b))
#define PX_SINT_COB_CIA(T, b, k, c, name) \
    PX__COBCIA(T, b, k, c, PT_SINT, name, 0, PX__CHK_INTB(T, b))
/** @} */

/** @name Unsigned integers (PT_UINT): decimal, or hexadecimal with _HEX
 *  ("0xff") and _HEXU ("0xFF"); arguments as for the signed forms. The
 *  _FMT forms take the format (PT_FMT_DEC, PT_FMT_HEXL, PT_FMT_HEXU).
 *  @{ */
#define PX_UINT_FMT(T, f, name, fmt) \
    PX__ONE(T, f, PT_UINT | (fmt), name, 0, 0, PX__CHK_INT1(T, f) + PX__CHK_FMT(fmt))
#define PX_UINT_ARR_FMT(T, f, name, fmt) \
    PX__ARR(T, f, PT_UINT | (fmt), name, 0, 0, PX__CHK_INTA(T, f) + PX__CHK_FMT(fmt))
#define PX_UINT_ARR_N_FMT(T, f, n, name, fmt) \
    PX__ARRN(T, f, n, PT_UINT | (fmt), name, 0, 0, PX__CHK_INTA(T, f) + PX__CHK_FMT(fmt))
#define PX_UINT_CIA_FMT(T, f, c, name, fmt) \
    PX__CIA(T, f, c, PT_UINT | (fmt), name, 0, 0, PX__CHK_INTA(T, f) + PX__CHK_FMT(fmt))
#define PX_UINT_COB_FMT(T, b, k, name, fmt) \
    PX__COB(T, b, k, PT_UINT | (fmt), name, 0, PX__CHK_INTB(T, b) + PX__CHK_FMT(fmt))
#define PX_UINT_COB_CIA_FMT(T, b, k, c, name, fmt) \
    PX__COBCIA(T, b, k, c, PT_UINT | (fmt), name, 0, PX__CHK_INTB(T, b) + PX__CHK_FMT(fmt))

#define PX_UINT(T, f, name) PX_UINT_FMT(T, f, name, PT_FMT_DEC)
#define PX_UINT_HEX(T, f, name) PX_UINT_FMT(T, f, name, PT_FMT_HEXL)
#define PX_UINT_HEXU(T, f, name) PX_UINT_FMT(T, f, name, PT_FMT_HEXU)
#define PX_UINT_ARR(T, f, name) PX_UINT_ARR_FMT(T, f, name, PT_FMT_DEC)
#define PX_UINT_ARR_HEX(T, f, name) PX_UINT_ARR_FMT(T, f, name, PT_FMT_HEXL)
#define PX_UINT_ARR_HEXU(T, f, name) PX_UINT_ARR_FMT(T, f, name, PT_FMT_HEXU)
#define PX_UINT_ARR_N(T, f, n, name) PX_UINT_ARR_N_FMT(T, f, n, name, PT_FMT_DEC)
#define PX_UINT_CIA(T, f, c, name) PX_UINT_CIA_FMT(T, f, c, name, PT_FMT_DEC)
#define PX_UINT_CIA_HEX(T, f, c, name) PX_UINT_CIA_FMT(T, f, c, name, PT_FMT_HEXL)
#define PX_UINT_CIA_HEXU(T, f, c, name) PX_UINT_CIA_FMT(T, f, c, name, PT_FMT_HEXU)
#define PX_UINT_COB(T, b, k, name) PX_UINT_COB_FMT(T, b, k, name, PT_FMT_DEC)
#define PX_UINT_COB_HEX(T, b, k, name) PX_UINT_COB_FMT(T, b, k, name, PT_FMT_HEXL)
#define PX_UINT_COB_HEXU(T, b, k, name) PX_UINT_COB_FMT(T, b, k, name, PT_FMT_HEXU)
#define PX_UINT_COB_CIA(T, b, k, c, name) PX_UINT_COB_CIA_FMT(T, b, k, c, name, PT_FMT_DEC)
/** @} */

/** @name Floating point (PT_FLOT): float or double fields and arrays
 *  @{ */
#define PX_FLOT(T, f, name) PX__ONE(T, f, PT_FLOT, name, 0, 0, PX__CHK_FLT1(T, f))
#define PX_FLOT_ARR(T, f, name) PX__ARR(T, f, PT_FLOT, name, 0, 0, PX__CHK_FLTA(T, f))
#define PX_FLOT_ARR_N(T, f, n, name) PX__ARRN(T, f, n, PT_FLOT, name, 0, 0, PX__CHK_FLTA(T, f))
#define PX_FLOT_CIA(T, f, c, name) PX__CIA(T, f, c, PT_FLOT, name, 0, 0, PX__CHK_FLTA(T, f))
#define PX_FLOT_COB(T, b, k, name) PX__COB(T, b, k, PT_FLOT, name, 0, PX__CHK_FLTB(T, b))
#define PX_FLOT_COB_CIA(T, b, k, c, name) \
    PX__COBCIA(T, b, k, c, PT_FLOT, name, 0, PX__CHK_FLTB(T, b))
/** @} */

/** @name Strings (PT_STRI): a character array holding one string
 *  PX_STRI uses the whole array as both capacities; PX_STRI_N limits both to
 *  `cap` bytes, terminator included (1 <= cap <= the array's size).
 *  @{ */
#define PX_STRI(T, f, name) \
    PX__ROW(PX__SZ(T, f) + PX__CHK_STRA(T, f) + PX__CHK_COUNT(PX__SZ(T, f)), PT_STRI, \
            offsetof(T, f), 0, 0, PX__SZ(T, f), name, 0, 0)
#define PX_STRI_N(T, f, cap, name)                                                            \
    PX__ROW((cap) + PX__CHK_STRA(T, f) +                                                     \
                PX__CHECK((cap) >= 1 && (size_t)(cap) <= PX__SZ(T, f),                       \
                          "kavor table: string capacity over the field"),                    \
            PT_STRI, offsetof(T, f), 0, 0, (cap), name, 0, 0)
/** @} */

/** @name Enumerations (PT_ENUM): int (or int-sized enum) values named by an
 *  `enume` table `tbl` (see PX_ENUME)
 *  @{ */
#define PX_ENUM(T, f, name, tbl) \
    PX__ONE(T, f, PT_ENUM, name, 0, tbl, PX__CHK_ENUM(PX__M(T, f)))
#define PX_ENUM_ARR(T, f, name, tbl) \
    PX__ARR(T, f, PT_ENUM, name, 0, tbl, PX__CHK_ENUM(PX__M(T, f)[0]))
#define PX_ENUM_ARR_N(T, f, n, name, tbl) \
    PX__ARRN(T, f, n, PT_ENUM, name, 0, tbl, PX__CHK_ENUM(PX__M(T, f)[0]))
/** @} */

/** @name Structures in place (PT_STRU): `sub` is the table of one structure
 *  @{ */
#define PX_STRU(T, f, name, sub) PX__ONE(T, f, PT_STRU, name, sub, 0, PX__CHK_REC(PX__M(T, f)))
#define PX_STRU_ARR(T, f, name, sub) \
    PX__ARR(T, f, PT_STRU, name, sub, 0, PX__CHK_REC(PX__M(T, f)[0]))
#define PX_STRU_ARR_N(T, f, n, name, sub) \
    PX__ARRN(T, f, n, PT_STRU, name, sub, 0, PX__CHK_REC(PX__M(T, f)[0]))
#define PX_STRU_CIA(T, f, c, name, sub) \
    PX__CIA(T, f, c, PT_STRU, name, sub, 0, PX__CHK_REC(PX__M(T, f)[0]))
#define PX_STRU_COB(T, b, k, name, sub) PX__COB(T, b, k, PT_STRU, name, sub, PX__CHK_RECB(T, b))
#define PX_STRU_COB_CIA(T, b, k, c, name, sub) \
    PX__COBCIA(T, b, k, c, PT_STRU, name, sub, PX__CHK_RECB(T, b))
/** @} */

/** @name Structures behind a pointer (PT_STRUM)
 *  `p` points to room for `count` structures, which the application provides
 *  before any save or load; the compiler can't know `count`, so it is the one
 *  number given by hand. The _COB forms have the layout of PX_STRU_COB.
 *  @{ */
#define PX_STRUM(T, p, count, name, sub) \
    PX__ROW((count) + PX__CHK_PTR(T, p) + PX__CHK_COUNT(count), PT_STRUM, offsetof(T, p), 0, \
            0, sizeof(*PX__M(T, p)), name, sub, 0)
#define PX_STRUM_CIA(T, p, count, c, name, sub) \
    PX__ROW((count) + PX__CHK_PTR(T, p) + PX__CHK_COUNT(count) + PX__CHK_CIA(T, c), \
            PT_STRUM | PT_F_CIA, offsetof(T, p), 0, offsetof(T, c), sizeof(*PX__M(T, p)), name, \
            sub, 0)
#define PX_STRUM_COB(T, b, k, name, sub) PX__COB(T, b, k, PT_STRUM, name, sub, PX__CHK_RECB(T, b))
#define PX_STRUM_COB_CIA(T, b, k, c, name, sub) \
    PX__COBCIA(T, b, k, c, PT_STRUM, name, sub, PX__CHK_RECB(T, b))
/** @} */

/** @name Lists (PT_LIST): heads of type zhead_t, nodes of type `N`
 *  `N` begins with a struct znode; `sub` is the table of one node, whose
 *  fields lie behind the znode. The reader allocates nodes of sizeof(N).
 *  @{ */
#define PX_LIST(T, h, N, name, sub) \
    PX__ROW(1 + PX__CHK_HEAD(PX__M(T, h)) + PX__CHK_NODE(N), PT_LIST, offsetof(T, h), 0, 0, \
            sizeof(N), name, sub, 0)
#define PX_LIST_ARR(T, h, N, name, sub) \
    PX__ROW(PX__N(T, h) + PX__CHK_ARRAY(T, h) + PX__CHK_HEAD(PX__M(T, h)[0]) + PX__CHK_NODE(N), \
            PT_LIST, offsetof(T, h), 0, 0, sizeof(N), name, sub, 0)
#define PX_LIST_CIA(T, h, c, N, name, sub) \
    PX__ROW(PX__N(T, h) + PX__CHK_ARRAY(T, h) + PX__CHK_HEAD(PX__M(T, h)[0]) + \
                PX__CHK_NODE(N) + PX__CHK_CIA(T, c), \
            PT_LIST | PT_F_CIA, offsetof(T, h), 0, offsetof(T, c), sizeof(N), name, sub, 0)
/** @} */

/** @name Variant lists (PT_VLST): nodes of the types of an `adesc` table
 *  `ad` (see PX_ADESC)
 *  @{ */
#define PX_VLST(T, h, name, ad) \
    PX__ROW(1 + PX__CHK_HEAD(PX__M(T, h)), PT_VLST, offsetof(T, h), 0, 0, \
            sizeof(zhead_t), name, 0, ad)
#define PX_VLST_ARR(T, h, name, ad) \
    PX__ROW(PX__N(T, h) + PX__CHK_ARRAY(T, h) + PX__CHK_HEAD(PX__M(T, h)[0]), PT_VLST, \
            offsetof(T, h), 0, 0, sizeof(zhead_t), name, 0, ad)
#define PX_VLST_CIA(T, h, c, name, ad) \
    PX__ROW(PX__N(T, h) + PX__CHK_ARRAY(T, h) + PX__CHK_HEAD(PX__M(T, h)[0]) + \
                PX__CHK_CIA(T, c), \
            PT_VLST | PT_F_CIA, offsetof(T, h), 0, offsetof(T, c), sizeof(zhead_t), name, 0, ad)
/** @} */

/** @name Table ends and the companion tables
 *  @{ */
/// The row that ends every table.
#define PX_END { 0, 0, 0, 0, 0, 0, 0, 0, (const char *)0, (struct pdesc *)0, 0 }
/// One item of an `enume` table: `key` in the document, `value` in memory.
#define PX_ENUME(key, value) { (key), (value) }
/// The end of an `enume` table; unknown words read as `value`.
#define PX_ENUME_END(value) { (const char *)0, (value) }
/// One alternative of an `adesc` table: nodes of type `N` (beginning with a
/// struct znode), described by `sub`, named `name` in the document.
#define PX_ADESC(N, sub, name) { sizeof(N) + (size_t)PX__CHK_NODE(N), (sub), (name) }
/// The end of an `adesc` table.
#define PX_ADESC_END { 0, (struct pdesc *)0, (const char *)0 }
/** @} */

#endif
