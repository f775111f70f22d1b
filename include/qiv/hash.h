/**
 * @file
 * Hash tables of fixed capacity: QIV_SimpleHash* with text keys, QIV_SimpleIntHash* with 32-bit
 * keys. Open addressing with a second hash for the step; a table never grows.
 *
 * Removing may lose more than the entry asked for: see QIV_SimpleHashRemove(). A table that is
 * filled once and then searched, or destroyed as a whole, has no such effect.
 *
 * None of the functions sets a last error or prints. A table has no lock: any threads may search it
 * together while none enters or removes; different tables are independent.
 */
#ifndef QIV_HASH_H
#define QIV_HASH_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/** A slot of a table with text keys. */
struct QIV_HSEARCH_SLOT {
  unsigned int used; /**< 0 when empty, otherwise the slot at which a search for the key starts */
  const char* key;   /**< the caller's text, not a copy */
  unsigned int data; /**< the caller's value */
};

/** A slot of a table with 32-bit keys. */
struct QIV_HSEARCH_INTSLOT {
  unsigned int used; /**< 0 when empty, otherwise ~key */
  unsigned int key;  /**< the key */
  unsigned int data; /**< the caller's value */
};

/** A table with text keys. Applications read the two numbers at most. */
struct QIV_HSEARCH_DATA {
  struct QIV_HSEARCH_SLOT* table; /**< `size` + 1 slots, of which slot 0 is never used */
  unsigned int size;              /**< capacity: a prime number, or 1 */
  unsigned int filled;            /**< slots counted as used */
};

/** A table with 32-bit keys. Applications read the two numbers at most. */
struct QIV_HSEARCH_INTDATA {
  struct QIV_HSEARCH_INTSLOT* table; /**< `size` + 1 slots, of which slot 0 is never used */
  unsigned int size;                 /**< capacity: a prime number, or 1 */
  unsigned int filled;               /**< slots counted as used */
};

/** What enters a table with text keys. */
struct QIV_HSEARCH_ITEM {
  const char* key;   /**< ended by a NUL; must stay as it is until the table is destroyed */
  unsigned int data; /**< any value */
};

/** What enters a table with 32-bit keys. */
struct QIV_HSEARCH_INTITEM {
  unsigned int key;  /**< 0xFFFFFFFF is never found and counts as used at each enter, for good */
  unsigned int data; /**< any value */
};

/**
 * A zeroed header of a table with text keys that the library does not use; every function refuses
 * it with -1 as long as it has no slots. It shares its name with the type, which is therefore
 * written with `struct` in front.
 */
extern QIV_API struct QIV_HSEARCH_DATA QIV_HSEARCH_DATA;
/** The like for 32-bit keys. */
extern QIV_API struct QIV_HSEARCH_INTDATA QIV_HSEARCH_INTDATA;

/**
 * Makes a table with text keys.
 *
 * @param n    wanted capacity in entries. The table gets the first of the odd numbers from `n` on
 *             that is a prime number: 0 and 1 give 1, 3 gives 5, 8 gives 11.
 * @param out  receives the table; left alone on failure; null is refused
 * @return 0; -1 when `out` is null, memory is short or no 32-bit number is large enough
 * @par Errors         errno: ENOMEM when memory is short or the table would be too large
 * @par Thread safety  any threads
 * @par System         malloc(3)
 * @see QIV_SimpleHashDestroy
 */
QIV_API int QIV_SimpleHashCreate(unsigned int n, struct QIV_HSEARCH_DATA** out) QIV_NOEXCEPT;

/**
 * Enters a key with its data. An entry that exists is never changed.
 *
 * @param it  the item, copied; the text behind its key is not. Null and a null key are refused.
 * @param h   the table; null is refused
 * @return 0 when the item is new, or when the key has the same data already; -1 when the key has
 *         other data, when it is new and the table is full, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  one thread per table
 * @par System         none
 */
QIV_API int QIV_SimpleHashEnter(const struct QIV_HSEARCH_ITEM* it,
                                struct QIV_HSEARCH_DATA* h) QIV_NOEXCEPT;

/**
 * Looks a key up.
 *
 * @param key   a text ended by a NUL; null is refused
 * @param data  receives the data of the entry, or 0 on failure; null is refused
 * @param h     the table; null is refused
 * @return 0; -1 when there is no such entry, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  any threads, while none enters or removes
 * @par System         none
 */
QIV_API int QIV_SimpleHashFind(const char* key, unsigned int* data,
                               struct QIV_HSEARCH_DATA* h) QIV_NOEXCEPT;

/**
 * Removes a key.
 *
 * The entry at the end of the key's chain is entered anew in the room that is made. Where chains of
 * several keys cross, this may lose that entry or leave others where no search finds them. Such an
 * entry may be entered a second time; removing it then brings the older data back. `filled` may
 * stay too high, so that a table in which much is removed fills up early. In a full table a key
 * that is not last in its chain is taken out with the result -1, or with 0 and the loss of the last
 * one.
 *
 * A slot that no search finds still holds its text: whatever a find or a remove says, no text that
 * was entered may go before the table.
 *
 * @param key  a text ended by a NUL; null is refused
 * @param h    the table; null is refused
 * @return 0; -1 when there is no such entry, when the entry at the end of the chain cannot be
 *         entered again, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  one thread per table
 * @par System         none
 */
QIV_API int QIV_SimpleHashRemove(const char* key, struct QIV_HSEARCH_DATA* h) QIV_NOEXCEPT;

/**
 * Frees a table. The texts of its keys remain the caller's.
 *
 * @param h  the table; null is refused
 * @return 0; -1 when `h` is null or no table of a create
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         free(3)
 */
QIV_API int QIV_SimpleHashDestroy(struct QIV_HSEARCH_DATA* h) QIV_NOEXCEPT;

/**
 * Makes a table with 32-bit keys.
 *
 * @param n    wanted capacity in entries, rounded up as by QIV_SimpleHashCreate()
 * @param out  receives the table; left alone on failure; null is refused
 * @return 0; -1 when `out` is null, memory is short or no 32-bit number is large enough
 * @par Errors         errno: ENOMEM when memory is short or the table would be too large
 * @par Thread safety  any threads
 * @par System         malloc(3)
 * @see QIV_SimpleIntHashDestroy
 */
QIV_API int QIV_SimpleIntHashCreate(unsigned int n, struct QIV_HSEARCH_INTDATA** out) QIV_NOEXCEPT;

/**
 * Enters a key with its data. An entry that exists is never changed. The key 0xFFFFFFFF counts as
 * new each time and raises `filled`, but is never found, and the next key that needs its slot takes
 * it.
 *
 * @param it  the item, copied; null is refused
 * @param h   the table; null is refused
 * @return 0 when the item is new, or when the key has the same data already; -1 when the key has
 *         other data, when it is new and the table is full, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  one thread per table
 * @par System         none
 */
QIV_API int QIV_SimpleIntHashEnter(const struct QIV_HSEARCH_INTITEM* it,
                                   struct QIV_HSEARCH_INTDATA* h) QIV_NOEXCEPT;

/**
 * Looks a key up.
 *
 * @param key   any value; 0xFFFFFFFF is never found
 * @param data  receives the data of the entry, or 0 on failure; null is refused
 * @param h     the table; null is refused
 * @return 0; -1 when there is no such entry, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  any threads, while none enters or removes
 * @par System         none
 */
QIV_API int QIV_SimpleIntHashFind(unsigned int key, unsigned int* data,
                                  struct QIV_HSEARCH_INTDATA* h) QIV_NOEXCEPT;

/**
 * Removes a key, with the effects on other entries that QIV_SimpleHashRemove() describes.
 *
 * @param key  any value; 0xFFFFFFFF is never found
 * @param h    the table; null is refused
 * @return 0; -1 when there is no such entry, when the entry at the end of the chain cannot be
 *         entered again, or for a refused argument
 * @par Errors         no errno
 * @par Thread safety  one thread per table
 * @par System         none
 */
QIV_API int QIV_SimpleIntHashRemove(unsigned int key, struct QIV_HSEARCH_INTDATA* h) QIV_NOEXCEPT;

/**
 * Frees a table.
 *
 * @param h  the table; null is refused
 * @return 0; -1 when `h` is null or no table of a create
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         free(3)
 */
QIV_API int QIV_SimpleIntHashDestroy(struct QIV_HSEARCH_INTDATA* h) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
