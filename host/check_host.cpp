// How `morva check-host` makes this host and tries it. Nothing else uses it.

#include "morva/check_host.h"

#include <cstddef>
#include <cstring>
#include <iterator>

#include "morva/host.h"

namespace qzhost {

namespace {

HostServices *create(const MORVAHostRequest *request, void **host) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.memoryLimit = request->memoryLimit;
  options.lockedTrees = request->lockedTrees;
  QZHost *made = QZHostCreate(&options);
  *host = made;
  return QZHostServices(made);
}

uint32_t destroy(void *host) {
  return QZHostDestroy(static_cast<QZHost *>(host), nullptr);
}

OrderNode *orderFirst(OrderList *list) {
  return static_cast<OrderNode *>(list->head);
}

OrderNode *orderNext(OrderNode *node) {
  return QZOrderNext(node);
}

// ---- keys of every field type --------------------------------------------------

struct EveryType {
  double number;
  int64_t whole;
  char text[12];
  int16_t small;
  unsigned char raw[3];
  char terminated[9];
};

constexpr MORVAKeyDesc kEveryType[] = {
    {sizeof(EveryType::text), 2, offsetof(EveryType, text), 1},
    {sizeof(EveryType::number), 1, offsetof(EveryType, number), 0},
    {sizeof(EveryType::raw), 4, offsetof(EveryType, raw), 0},
    {sizeof(EveryType::small), 3, offsetof(EveryType, small), 0},
    {sizeof(EveryType::terminated), 5, offsetof(EveryType, terminated), 0},
    {sizeof(EveryType::whole), 3, offsetof(EveryType, whole), 0},
};

// Texts that do not differ in what is packed: blanks and NULs at the end of one,
// what follows the NUL of the other. `room` holds anything and lends it to them.
const void *makeEveryType(uint64_t number, void *room) {
  EveryType row;
  memcpy(&row, room, sizeof row);
  row.number = static_cast<double>(number) / 8;
  row.whole = -static_cast<int64_t>(number);
  const char blank = row.text[11] % 2 == 0 ? ' ' : '\0';
  memset(row.text, blank, sizeof row.text);
  memcpy(row.text, "part", 4);
  row.small = static_cast<int16_t>(number % 1000);
  for (size_t i = 0; i < sizeof row.raw; ++i)
    row.raw[i] = static_cast<unsigned char>(number >> (8 * i));
  for (size_t i = 0; i < 5; ++i)
    row.terminated[i] = static_cast<char>('a' + ((number >> (4 * i)) & 15));
  row.terminated[5] = '\0';
  memcpy(room, &row, sizeof row);
  return room;
}

// ---- keys of one number ---------------------------------------------------------

constexpr MORVAKeyDesc kNumber[] = {{sizeof(uint32_t), 3, 4, 0}};
// No integer has three bytes.
constexpr MORVAKeyDesc kRefused = {3, 3, 0, 0};

const void *makeNumber(uint64_t number, void *room) {
  const auto value = static_cast<uint32_t>(number);
  memcpy(static_cast<char *>(room) + 4, &value, sizeof value);
  return room;
}

constexpr MORVAHostKey kKeys[] = {
    {kEveryType, std::size(kEveryType), 0, sizeof(EveryType), makeEveryType, &kRefused},
    {kNumber, std::size(kNumber), 0, 8, makeNumber, &kRefused},
};

}  // namespace

}  // namespace qzhost

const MORVAHostCheck MORVAHostForCheck = {MORVA_HOST_CHECK_VERSION,
                                          0,
                                          qzhost::create,
                                          qzhost::destroy,
                                          qzhost::orderFirst,
                                          qzhost::orderNext,
                                          qzhost::kKeys,
                                          std::size(qzhost::kKeys)};
