/**
 * @file
 * Texts and numbers: copies, comparisons and searches in the manner of the standard functions, and
 * conversions between integers and texts with rules of their own.
 *
 * Texts end with a NUL. Bytes are compared as unsigned values; white space and case are those of
 * the program's locale. A null text is refused as each function says; where texts are compared it
 * comes before every text and equals null. No function here sets a last error or prints, and all
 * are safe in any threads as far as nobody changes the texts or the locale meanwhile.
 */
#ifndef QIV_STRING_H
#define QIV_STRING_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Copies a text with its NUL. The memories must not overlap.
 *
 * @param dst  receives the copy; null does nothing
 * @param src  the text; null does nothing
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strcpy(3)
 */
QIV_API void QIV_Strcpy(char* dst, const char* src) QIV_NOEXCEPT;

/**
 * Writes exactly `n` bytes: the text, cut off where it is longer, and NULs where it is shorter. A
 * text of `n` or more characters leaves no NUL. The memories must not overlap.
 *
 * @param dst  receives the bytes; null does nothing
 * @param src  the text, of which no more than `n` bytes are read; null does nothing
 * @param n    bytes of `dst`; 0 and less does nothing
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strncpy(3)
 */
QIV_API void QIV_Strncpy(char* dst, const char* src, int n) QIV_NOEXCEPT;

/**
 * Copies a text into new memory.
 *
 * @param s  the text; null is refused
 * @return the copy, which free() releases; null when `s` is null or memory is short
 * @par Errors         ENOMEM
 * @par Thread safety  any threads
 * @par System         strdup(3)
 */
QIV_API char* QIV_Strdup(const char* s) QIV_NOEXCEPT;

/**
 * Copies the first characters of a text into new memory, and a NUL behind them.
 *
 * @param s  the text, of which no more than `n` bytes are read; null is refused
 * @param n  the most characters to copy; negative is refused
 * @return the copy, which free() releases; null when an argument is refused or memory is short
 * @par Errors         ENOMEM
 * @par Thread safety  any threads
 * @par System         strndup(3)
 */
QIV_API char* QIV_Strndup(const char* s, int n) QIV_NOEXCEPT;

/**
 * Compares two texts byte by byte.
 *
 * @param a  one text; null comes before every text
 * @param b  the other; null comes before every text
 * @return 0 when they are equal, else the first byte of `a` that differs less that of `b`; -1 or 1
 *         when only `a` or only `b` is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strcmp(3)
 */
QIV_API int QIV_Strcmp(const char* a, const char* b) QIV_NOEXCEPT;

/**
 * Compares the first bytes of two texts; see QIV_Strcmp().
 *
 * @param a  one text
 * @param b  the other
 * @param n  the most bytes to compare; negative compares all, as strncmp() does of a negative count
 * @return as QIV_Strcmp(); 0 when `n` is 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strncmp(3)
 */
QIV_API int QIV_Strncmp(const char* a, const char* b, int n) QIV_NOEXCEPT;

/**
 * Compares two texts after toupper() on both sides. The characters between "Z" and "a", such as
 * "_", therefore come behind the letters; with strcasecmp() they come before them.
 *
 * @param a  one text; null comes before every text
 * @param b  the other; null comes before every text
 * @return 0 when they are equal, else the first byte of `a` that differs less that of `b`, both
 *         after toupper(); -1 or 1 when only `a` or only `b` is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         toupper(3)
 */
QIV_API int QIV_Strcasecmp(const char* a, const char* b) QIV_NOEXCEPT;

/**
 * Compares the first characters of two texts; see QIV_Strcasecmp().
 *
 * @param a  one text
 * @param b  the other
 * @param n  the most characters to compare; negative compares only the first ones
 * @return as QIV_Strcasecmp(); 0 when `n` is 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         toupper(3)
 */
QIV_API int QIV_Strncasecmp(const char* a, const char* b, int n) QIV_NOEXCEPT;

/**
 * Finds the first of a character.
 *
 * @param s  the text; null is refused
 * @param c  the character; 0 finds the NUL
 * @return its position in `s`; null when there is none or `s` is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strchr(3)
 */
QIV_API char* QIV_Strchr(const char* s, int c) QIV_NOEXCEPT;

/**
 * Finds the first of a character among the first `n` bytes. A NUL does not end the search.
 *
 * @param s  the memory, of which all `n` bytes may be read; null is refused
 * @param c  the character
 * @param n  bytes to look at
 * @return its position in `s`; null when there is none, `n` is below 1 or `s` is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         memchr(3)
 */
QIV_API char* QIV_Strnchr(const char* s, int c, int n) QIV_NOEXCEPT;

/**
 * Finds the first of a text in another.
 *
 * @param s  where to look; null is refused
 * @param p  what to look for; an empty text is found at once
 * @return its position in `s`; null when there is none or a text is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         strstr(3)
 */
QIV_API char* QIV_Strstr(const char* s, const char* p) QIV_NOEXCEPT;

/**
 * Finds the first of some bytes in a text. The NUL of `s` does not belong to it.
 *
 * @param s    where to look; null is refused
 * @param p    what to look for, which is read up to its NUL at most; null is refused
 * @param len  bytes of `p`; 0 is found at once
 * @return their position in `s`; null when there is none, `s` has fewer than `len` bytes, `len` is
 *         negative or a text is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         memcmp(3)
 */
QIV_API char* QIV_Strnstr(const char* s, const char* p, int len) QIV_NOEXCEPT;

/**
 * Finds the first of a text in another, whatever their case: the first characters are compared
 * after tolower(), the others as QIV_Strncasecmp() does.
 *
 * @param s  where to look; null is refused
 * @param p  what to look for; an empty text is found at once
 * @return its position in `s`; null when there is none or a text is null
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         tolower(3), toupper(3)
 */
QIV_API char* QIV_Strcasestr(const char* s, const char* p) QIV_NOEXCEPT;

/**
 * Writes an integer. The digits are 0 to 9, then a to z; only radix 10 writes a sign. A negative
 * value in another radix is written as its 32 bits without a sign: do not rely on that.
 *
 * @param buf    receives the text and a NUL. 12 bytes hold every value in radix 10, 33 bytes every
 *               value in every radix; null is refused
 * @param value  the value
 * @param radix  2 to 36
 * @return `buf`; null, and nothing written, when `radix` or `buf` is refused
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API char* QIV_Itoa(char* buf, int value, int radix) QIV_NOEXCEPT;

/**
 * Does what QIV_Itoa() does, for a value of 32 bits too.
 *
 * @param buf    receives the text
 * @param value  the value
 * @param radix  2 to 36
 * @return as QIV_Itoa()
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API char* QIV_Ltoa(char* buf, int value, int radix) QIV_NOEXCEPT;

/**
 * Reads an integer: white space, a sign that may be missing, and digits.
 *
 * "0" to "9" count 0 to 9 and the letters 10 to 35 in either case. A digit is read while it is not
 * above the base: one that equals the base is taken too, so that "12a" in base 10 gives 130.
 * A value beyond 64 bits gives -1, and its digits are read to their end; nothing tells it from the
 * text "-1".
 *
 * @param str   the text; null is refused
 * @param end   receives the position behind the last character read, or `str` when there was no
 *              digit or an argument is refused; may be null. "0x" without a digit has none
 * @param base  2 to 16; 0 takes 16 behind "0x" or "0X", 8 at "0", else 10. In base 16 too "0x" and
 *              "0X" are skipped
 * @return the value; -1 when it is beyond 64 bits; 0 when there was no digit, `base` is another or
 *         `str` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         isspace(3)
 */
QIV_API qiv_int64 QIV_StrToi64(const char* str, char** end, int base) QIV_NOEXCEPT;

/**
 * Reads a decimal integer: QIV_StrToi64() in base 10.
 *
 * @param s  the text
 * @return as QIV_StrToi64()
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         isspace(3)
 */
QIV_API qiv_int64 QIV_Atoi64(const char* s) QIV_NOEXCEPT;

/**
 * Reads an integer of 32 bits by the rules of QIV_StrToi64().
 *
 * @param str   the text; null is refused
 * @param end   receives the position behind the last character read, or `str`; may be null
 * @param base  0 or 2 to 16
 * @return the value; -1 when it is beyond 32 bits; 0 as QIV_StrToi64()
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         isspace(3)
 */
QIV_API QIV_INT32 QIV_StrToi32(const char* str, char** end, int base) QIV_NOEXCEPT;

/**
 * Reads a decimal integer of 32 bits: QIV_StrToi32() in base 10.
 *
 * @param s  the text
 * @return as QIV_StrToi32()
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         isspace(3)
 */
QIV_API QIV_INT32 QIV_Atoi32(const char* s) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

namespace qiv {

/**
 * The standard functions under their own names, and itoa(), which is QIV_Itoa(). Null is refused:
 * what copies does nothing and returns null, what searches returns null, what counts or reads a
 * number returns 0, and what compares puts null before every text. A count of 0 compares nothing:
 * the result is 0, also for null. Comparisons promise the sign of their result only; QIV_Strcmp()
 * and its kin promise the difference. Any threads.
 */
class QIV_API qiv_string {
 public:
  /**
   * A value beyond int is narrowed to it. Beyond the platform's long it is that type's limit,
   * narrowed likewise, and errno is ERANGE. System: strtol(3).
   */
  static int atoi(const char* text) noexcept;
  /** See QIV_Itoa(). */
  static char* itoa(char* buf, int value, int radix) noexcept;

  /** System: strcpy(3). */
  static char* strcpy(char* dst, const char* src) noexcept;
  /** A count above PTRDIFF_MAX, which no object has, is refused. System: strncpy(3). */
  static char* strncpy(char* dst, const char* src, size_t n) noexcept;
  /** System: strcat(3). */
  static char* strcat(char* dst, const char* src) noexcept;
  /** System: strlen(3). */
  static size_t strlen(const char* text) noexcept;

  /** System: strcmp(3). */
  static int strcmp(const char* a, const char* b) noexcept;
  /** Unlike QIV_Strcasecmp() it puts "_" before the letters. System: strcasecmp(3). */
  static int strcasecmp(const char* a, const char* b) noexcept;
  /** System: strncasecmp(3). */
  static int strncasecmp(const char* a, const char* b, size_t n) noexcept;

  /** System: strchr(3). */
  static char* strchr(const char* text, int c) noexcept;
  /** System: strrchr(3). */
  static char* strrchr(const char* text, int c) noexcept;
  /** System: strstr(3). */
  static char* strstr(const char* text, const char* part) noexcept;
};

}  // namespace qiv

#endif  // __cplusplus

#endif
