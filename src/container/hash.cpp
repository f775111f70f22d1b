// Hash tables of fixed capacity: one algorithm for text and for 32-bit keys.
#include <qiv/hash.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

static_assert(sizeof(void*) != 4 || sizeof(struct QIV_HSEARCH_DATA) == 12, "three 32-bit fields");
static_assert(sizeof(void*) != 4 || sizeof(struct QIV_HSEARCH_INTDATA) == 12, "three such fields");
static_assert(sizeof(void*) != 4 || sizeof(QIV_HSEARCH_SLOT) == 12, "three 32-bit fields");
static_assert(sizeof(void*) != 4 || sizeof(QIV_HSEARCH_ITEM) == 8, "two 32-bit fields");
static_assert(sizeof(QIV_HSEARCH_INTSLOT) == 12, "three 32-bit fields");
static_assert(sizeof(QIV_HSEARCH_INTITEM) == 8, "two 32-bit fields");
static_assert(offsetof(struct QIV_HSEARCH_DATA, size) == sizeof(void*), "fields in order");
static_assert(offsetof(struct QIV_HSEARCH_DATA, filled) == sizeof(void*) + 4, "fields in order");
static_assert(offsetof(struct QIV_HSEARCH_INTDATA, size) == sizeof(void*), "fields in order");
static_assert(offsetof(struct QIV_HSEARCH_INTDATA, filled) == sizeof(void*) + 4, "in order");
static_assert(offsetof(QIV_HSEARCH_SLOT, key) == sizeof(void*), "fields in order");
static_assert(offsetof(QIV_HSEARCH_SLOT, data) == 2 * sizeof(void*), "fields in order");
static_assert(offsetof(QIV_HSEARCH_ITEM, data) == sizeof(void*), "fields in order");
static_assert(offsetof(QIV_HSEARCH_INTSLOT, key) == 4, "fields in order");
static_assert(offsetof(QIV_HSEARCH_INTSLOT, data) == 8, "fields in order");
static_assert(offsetof(QIV_HSEARCH_INTITEM, data) == 4, "fields in order");

namespace {

// 64 bits, so that nothing wraps near the largest 32-bit size. Kept as it is: the test takes 1 for
// a prime number and 3 for none, which also keeps size - 2 from being 0.
bool IsTableSize(std::uint64_t size) {
  std::uint64_t divisor = 3;
  while (divisor * divisor < size && size % divisor != 0) divisor += 2;
  return size % divisor != 0;
}

std::uint64_t TableSizeFrom(unsigned int n) {
  std::uint64_t size = n | 1U;
  while (!IsTableSize(size)) size += 2;
  return size;
}

/** Text keys. The first hash counts characters from 0 to 255, whatever `char` is. */
struct TextKeys {
  using Key = const char*;
  using Header = struct QIV_HSEARCH_DATA;
  using Slot = QIV_HSEARCH_SLOT;
  using Item = QIV_HSEARCH_ITEM;

  static unsigned int Hash(Key key) {
    const std::size_t length = std::strlen(key);
    auto hash = static_cast<unsigned int>(length);
    for (std::size_t i = length; i > 0; --i) {
      hash = (hash << 4) + static_cast<unsigned char>(key[i - 1]);
    }
    return hash;
  }

  static unsigned int UsedMark(Key /*key*/, unsigned int home) { return home; }

  static bool Holds(const Slot& slot, Key key, unsigned int home) {
    return slot.used == home && std::strcmp(slot.key, key) == 0;
  }
};

struct IntKeys {
  using Key = unsigned int;
  using Header = struct QIV_HSEARCH_INTDATA;
  using Slot = QIV_HSEARCH_INTSLOT;
  using Item = QIV_HSEARCH_INTITEM;

  static unsigned int Hash(Key key) { return key; }

  // Kept: the mark of 0xFFFFFFFF is that of an empty slot, so this key is never found.
  static unsigned int UsedMark(Key key, unsigned int /*home*/) { return ~key; }

  // By the mark alone: a slot that holds 0xFFFFFFFF counts as empty.
  static bool Holds(const Slot& slot, Key key, unsigned int /*home*/) {
    return slot.used != 0 && slot.key == key;
  }
};

template <class Keys>
class Table {
 public:
  using Key = typename Keys::Key;
  using Header = typename Keys::Header;
  using Slot = typename Keys::Slot;
  using Item = typename Keys::Item;

  explicit Table(Header* header) : m_header(*header) {}

  static int Create(unsigned int n, Header** out) {
    static_assert(sizeof(Header) % alignof(Slot) == 0, "slots follow the header directly");
    if (out == nullptr) return QIV_ERROR;
    const std::uint64_t size = TableSizeFrom(n);
    const std::uint64_t maxSlots = (SIZE_MAX - sizeof(Header)) / sizeof(Slot);
    if (size > UINT32_MAX || size + 1 > maxSlots) {
      errno = ENOMEM;
      return QIV_ERROR;
    }
    const auto slots = static_cast<std::size_t>(size + 1);
    void* const block = std::calloc(1, sizeof(Header) + slots * sizeof(Slot));
    if (block == nullptr) return QIV_ERROR;
    auto* const header = static_cast<Header*>(block);
    header->table = SlotsBehind(header);
    header->size = static_cast<unsigned int>(size);
    *out = header;
    return QIV_OK;
  }

  static int Destroy(Header* header) {
    if (header == nullptr || header->table != SlotsBehind(header)) return QIV_ERROR;
    std::free(header);
    return QIV_OK;
  }

  /** False for null and for a header without slots, such as the exported ones. */
  static bool IsTable(const Header* header) {
    return header != nullptr && header->table != nullptr && header->size != 0;
  }

  int Enter(const Item& item) {
    const unsigned int home = Home(item.key);
    const Place place = Search(item.key, home);
    if (place.found) return place.slot->data == item.data ? QIV_OK : QIV_ERROR;
    if (m_header.filled == m_header.size) return QIV_ERROR;
    *place.slot = {Keys::UsedMark(item.key, home), item.key, item.data};
    ++m_header.filled;
    return QIV_OK;
  }

  int Find(Key key, unsigned int* data) const {
    const Place place = Search(key, Home(key));
    if (!place.found) return QIV_ERROR;
    *data = place.slot->data;
    return QIV_OK;
  }

  // Kept: entering the tail again counts it twice and fails in a full table, unless the tail is
  // found where it stands: then it is lost when its slot is cleared.
  int Remove(Key key) {
    const unsigned int home = Home(key);
    if (!IsOccupied(home)) return QIV_ERROR;
    Slot* const tail = ChainTail(home);
    const Item tailItem = {tail->key, tail->data};
    const Place place = Search(key, home);
    if (!place.found) return QIV_ERROR;
    if (place.slot != tail) {
      *place.slot = {};
      if (Enter(tailItem) != QIV_OK) return QIV_ERROR;
    }
    *tail = {};
    --m_header.filled;
    return QIV_OK;
  }

 private:
  /** Where a search has ended: at the key, or else at the slot that it looked at last. */
  struct Place {
    Slot* slot;
    bool found;
  };

  static Slot* SlotsBehind(Header* header) { return reinterpret_cast<Slot*>(header + 1); }

  unsigned int Home(Key key) const {
    const unsigned int remainder = Keys::Hash(key) % m_header.size;
    return remainder == 0 ? 1 : remainder;
  }

  // In a table of size 1 this is 2.
  unsigned int Step(unsigned int home) const { return 1 + home % (m_header.size - 2); }

  // From 1..size to 1..size: the step is below the size, which is prime, so that a chain passes
  // every slot. Size 1 leads from slot 1 to slot 0, which is empty and ends the chain.
  unsigned int Next(unsigned int index, unsigned int step) const {
    return index <= step ? m_header.size - (step - index) : index - step;
  }

  bool IsOccupied(unsigned int index) const { return m_header.table[index].used != 0; }

  Place Search(Key key, unsigned int home) const {
    Slot* slot = &m_header.table[home];
    if (Keys::Holds(*slot, key, home)) return {slot, true};
    if (!IsOccupied(home)) return {slot, false};
    const unsigned int step = Step(home);
    for (unsigned int i = Next(home, step); i != home; i = Next(i, step)) {
      slot = &m_header.table[i];
      if (Keys::Holds(*slot, key, home)) return {slot, true};
      if (!IsOccupied(i)) return {slot, false};
    }
    return {slot, false};
  }

  /** The last entry of the chain that starts at an occupied slot. */
  Slot* ChainTail(unsigned int home) const {
    unsigned int tail = home;
    const unsigned int step = Step(home);
    for (unsigned int i = Next(home, step); i != home && IsOccupied(i); i = Next(i, step)) tail = i;
    return &m_header.table[tail];
  }

  Header& m_header;
};

using TextTable = Table<TextKeys>;
using IntTable = Table<IntKeys>;

}  // namespace

extern "C" {

struct QIV_HSEARCH_DATA QIV_HSEARCH_DATA = {};
struct QIV_HSEARCH_INTDATA QIV_HSEARCH_INTDATA = {};

int QIV_SimpleHashCreate(unsigned int n, struct QIV_HSEARCH_DATA** out) noexcept {
  return TextTable::Create(n, out);
}

int QIV_SimpleHashEnter(const QIV_HSEARCH_ITEM* it, struct QIV_HSEARCH_DATA* h) noexcept {
  if (it == nullptr || it->key == nullptr || !TextTable::IsTable(h)) return QIV_ERROR;
  return TextTable(h).Enter(*it);
}

int QIV_SimpleHashFind(const char* key, unsigned int* data, struct QIV_HSEARCH_DATA* h) noexcept {
  if (data == nullptr) return QIV_ERROR;
  *data = 0;
  if (key == nullptr || !TextTable::IsTable(h)) return QIV_ERROR;
  return TextTable(h).Find(key, data);
}

int QIV_SimpleHashRemove(const char* key, struct QIV_HSEARCH_DATA* h) noexcept {
  if (key == nullptr || !TextTable::IsTable(h)) return QIV_ERROR;
  return TextTable(h).Remove(key);
}

int QIV_SimpleHashDestroy(struct QIV_HSEARCH_DATA* h) noexcept { return TextTable::Destroy(h); }

int QIV_SimpleIntHashCreate(unsigned int n, struct QIV_HSEARCH_INTDATA** out) noexcept {
  return IntTable::Create(n, out);
}

int QIV_SimpleIntHashEnter(const QIV_HSEARCH_INTITEM* it, struct QIV_HSEARCH_INTDATA* h) noexcept {
  if (it == nullptr || !IntTable::IsTable(h)) return QIV_ERROR;
  return IntTable(h).Enter(*it);
}

int QIV_SimpleIntHashFind(unsigned int key, unsigned int* data,
                          struct QIV_HSEARCH_INTDATA* h) noexcept {
  if (data == nullptr) return QIV_ERROR;
  *data = 0;
  if (!IntTable::IsTable(h)) return QIV_ERROR;
  return IntTable(h).Find(key, data);
}

int QIV_SimpleIntHashRemove(unsigned int key, struct QIV_HSEARCH_INTDATA* h) noexcept {
  return IntTable::IsTable(h) ? IntTable(h).Remove(key) : QIV_ERROR;
}

int QIV_SimpleIntHashDestroy(struct QIV_HSEARCH_INTDATA* h) noexcept {
  return IntTable::Destroy(h);
}

}  // extern "C"
