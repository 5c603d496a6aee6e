/**
 * @file
 * @ingroup hstring
 * Zero-terminated byte strings, cut, replaced and converted.
 */

/**
 * @addtogroup hstring
 * Zero-terminated byte strings: command lines and separated fields cut in place, line extraction,
 * substitution into a bounded buffer, hexadecimal text.
 *
 * All memory is the caller's, but for the text that HString_HexPrint() hands over. Sizes and maxima
 * of 0 or below store nothing; null pointers are answered as said at each function, never followed.
 * Failures that come with a message are logged as records of level ERR from the file "hstring".
 *
 * @par Threads
 * Nothing is shared, every function may be called by any thread on memory of its own.
 * @{
 */
#ifndef HYBASE_HSTRING_H
#define HYBASE_HSTRING_H

#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Cuts a command line into its words, in place: `argv[i]` point into `line` and live as long as it.
 * Words are ended by a blank or a tab. A word that begins with a single or a double quote reaches
 * over the blanks up to the next quote of that kind (to the end of the line when there is none);
 * these two quotes are removed, later ones are plain characters. Tabs, line feeds, carriage returns
 * and blanks around a word are cut off, inside the quotes as well; '' gives an empty word.
 *
 * `max` is the highest index that may be written: argv must hold max + 1 pointers, and what comes
 * after that many words is left out. max 0 gives one word, a negative max none.
 * Returns the number of words, -1 for a null `line` or `argv`.
 */
HYBASE_API int32_t HString_CmdParser(char* line, char** argv, int32_t max);

/**
 * Cuts exactly `len` bytes at `buf` into fields, in place: `argv[i]` point into `buf`. Runs of the
 * separator count as one, so no field is empty; with the separator ' ' every isspace(3) character
 * separates. The separator behind a field becomes its terminator. A field that reaches the end of
 * the `len` bytes gets none: `buf[len]` must be zero for it to be a string.
 *
 * argv must hold `max` pointers; cutting stops behind the field that fills it.
 * Returns the number of fields, 0 for a null `buf` or `argv`.
 */
HYBASE_API int32_t HString_ConvertToArgv_ex(char* buf, int32_t len, char sep, char** argv,
                                            int32_t max);

/** HString_ConvertToArgv_ex() with the separator ' '. */
HYBASE_API int32_t HString_ConvertToArgv(char* buf, int32_t len, char** argv, int32_t max);

/**
 * Copies the first line of `src`, its line feed included, to `dst`: at most size - 1 bytes and a
 * terminator. Where a line was longer than that, the next call at src + result goes on inside it.
 * Returns the length of the copy; 0 at the end of `src`, for a null pointer (a null `src` leaves an
 * empty string in `dst`) and, with nothing stored, for a size of 0 or below.
 */
HYBASE_API int32_t HString_GetLine(const char* src, char* dst, int32_t size);

/**
 * Replaces every `from` in `str`, from left to right and not overlapping, by `to`. An empty `from`
 * occurs nowhere: the result is `str` itself.
 *
 * With `dst`, the result is written there WITHOUT a terminator: clear `dst[0..size-1]` before.
 * `str` stays as it is; the two must not overlap. With a null `dst` (or dst == str), the result
 * replaces `str`, which must own `size` bytes: what is left of them behind the result is zero. A
 * result of exactly `size` bytes has no terminator.
 *
 * The result may be `size` bytes long, but only size - 1 when it ends in a replacement.
 * Returns its length. A result that does not fit logs `"str_dst size is too small\n"` and returns
 * -1; `str` is unchanged then, and `dst` holds as much of the result as it has room for. A null
 * `str`, `from` or `to`, and memory that is short, return -1 without a message.
 */
HYBASE_API int32_t HString_WordReplace(char* str, char* dst, int32_t size, const char* from,
                                       const char* to);

/**
 * Converts hexadecimal text of either case to bytes, high nibble first. `out` must hold
 * strlen(text) / 2 bytes. Returns the number of bytes, 0 for an empty text.
 * An odd length logs `"string len must be even number\n"` and writes nothing; any character but a
 * hexadecimal digit logs `"string is invalid [%c]\n"` and leaves the bytes before its pair in
 * `out`. Both return -1, as do null pointers, without a message.
 */
HYBASE_API int32_t HString_HexParse(const char* text, uint8_t* out);

/**
 * Returns `n` bytes as a new text of 2 digits each, capital letters when `upper` is not 0, which
 * the caller gives to free(3). Null when memory is short, for a negative n, and for null data
 * unless n is 0, which gives an empty text.
 */
HYBASE_API char* HString_HexPrint(const uint8_t* data, int32_t n, int32_t upper);

#ifdef __cplusplus
}
#endif

/** @} */

#endif
