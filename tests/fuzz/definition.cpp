// Creation with any parameters, key definitions good and bad, and the packing of
// rows: against the layout worked out once more, and the packing rules applied
// character by character.
#include <array>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "morva/host.h"
#include "recording_host.h"

using morva::recording::Call;
using morva::recording::Extension;
using morva::recording::RecordingHost;
using morva_fuzz::Input;

namespace {

constexpr uint64_t kMost = UINT32_MAX;
// Beyond this a table is defined, but nothing is stored in it.
constexpr uint64_t kLargestStored = 4096;

struct Layout {
  uint64_t keyLength, sumOffset, dataOffset, recordSize;
};

uint64_t multipleOf8(uint64_t n) {
  while (n % 8 != 0) ++n;
  return n;
}

Layout layoutOf(uint64_t keyArea, uint64_t dataLength, uint32_t flags) {
  Layout layout{keyArea, 0, multipleOf8(keyArea), 0};
  if ((flags & flagSum) != 0) {
    layout.sumOffset = layout.dataOffset;
    layout.dataOffset += 8;
  }
  layout.recordSize = layout.dataOffset + dataLength + ((flags & flagMultiData) != 0 ? 24 : 0);
  return layout;
}

bool fits(const Layout &layout) {
  return layout.keyLength <= kMost && layout.recordSize + 47 <= kMost;
}

int64_t largestBlock(int64_t memHint) {
  if (memHint < 1) return 2013265;
  const double bytes = static_cast<double>(memHint) * 30.72;
  return bytes >= 9223372036854775808.0 ? INT64_MAX : static_cast<int64_t>(bytes);
}

// A field as the packer has taken it.
struct Field {
  uint32_t type, length, from;
  bool capitals;
};

char packedLetter(char c, bool capitals) {
  static const std::string small = "abcdefghijklmnopqrstuvwxyz";
  const size_t place = capitals ? small.find(c) : std::string::npos;
  return place == std::string::npos ? c : "ABCDEFGHIJKLMNOPQRSTUVWXYZ"[place];
}

// One field by the rules of the embedded host.
std::string packed(const Field &field, const std::string &row) {
  std::string text = row.substr(field.from, field.length);
  if (field.type == 1 && text == std::string(7, '\0') + '\x80') return std::string(8, '\0');
  if (field.type == 2) {
    for (size_t i = text.size(); i > 0 && (text[i - 1] == ' ' || text[i - 1] == '\0'); --i) {
      text[i - 1] = ' ';
    }
  }
  bool ended = false;
  for (char &c : text) {
    ended = ended || (field.type == 5 && c == '\0');
    c = ended ? '\0' : packedLetter(c, field.capitals && (field.type == 2 || field.type == 5));
  }
  return text;
}

bool isGoodLength(uint32_t type, uint32_t length) {
  if (type == 1) return length == 8;
  if (type == 3) return length == 1 || length == 2 || length == 4 || length == 8;
  return length > 0;
}

uint32_t takeLength(Input &input) {
  static constexpr std::array<uint32_t, 8> kLengths = {8,      1,          2,          4,
                                                       0x8000, 0x7FFFFFFF, 0xFFFFFF00, 0xFFFFFFFF};
  const uint8_t choice = input.byte();
  return choice < 8 ? kLengths[choice] : choice % 64;
}

// The library on the embedded host, whose packer knows types, or on the recording
// one, whose packer copies, writes down what it was told and refuses on command.
class Host {
 public:
  explicit Host(bool embedded) {
    if (!embedded) {
      recording_ = std::make_unique<RecordingHost>();
      extension_ = std::make_unique<Extension>(*recording_);
      ext_ = extension_->get();
      return;
    }
    host_ = QZHostCreate(nullptr);
    const QZEntryPoints entry{"morva", qzextver, morva::morva};
    char error[256] = "";
    ext_ = QZHostAttach(host_, &entry, error, sizeof error);
    if (ext_ == nullptr) morva_fuzz::finding(__FILE__, __LINE__, error);
  }

  MORVAExt *ext() { return ext_; }
  RecordingHost *recording() { return recording_.get(); }
  bool embedded() const { return host_ != nullptr; }

  // So many pools are left: a definition that is closed again gets another pool.
  void close(uint64_t pools) {
    if (host_ != nullptr) {
      FUZZ_CHECK(QZHostDestroy(host_, nullptr) == pools);
      return;
    }
    extension_.reset();
    recording_->checkGuards();
    for (const std::string &complaint : recording_->complaints()) FUZZ_CHECK_EMPTY(complaint);
    FUZZ_CHECK(recording_->poolsAlive() == pools && recording_->blocksAlive() == 0);
    FUZZ_CHECK(recording_->objectsAlive() == 0 && recording_->locksAlive() == 0);
    FUZZ_CHECK(recording_->companionsAlive() == 0);
  }

 private:
  QZHost *host_ = nullptr;
  std::unique_ptr<RecordingHost> recording_;
  std::unique_ptr<Extension> extension_;
  MORVAExt *ext_ = nullptr;
};

class Definition {
 public:
  Definition(Host &host, MORVAInst *inst, uint32_t flags, const MORVAParms &parms)
      : host_(host),
        inst_(inst),
        flags_(flags),
        dataLength_(parms.dataLength),
        block_(largestBlock(parms.memHint)) {
    const bool fixed = (flags & flagFixedKey) != 0;
    typed_ = !fixed && (flags & flagVarKey) == 0;
    if (fixed) use(layoutOf(uint64_t{parms.keyLength} + 12, dataLength_, flags));
  }

  void step(Input &input) {
    switch (input.below(8)) {
      case 0:
        FUZZ_CHECK(inst_->DefineKey(inst_, nullptr) == MORVA_INVALID);
        FUZZ_CHECK(inst_->DefineKey(nullptr, nullptr) == MORVA_INVALID);
        FUZZ_CHECK(inst_->DefineDone(nullptr, 0, 8) == MORVA_INVALID);
        break;
      case 1:
      case 2:
      case 3:
        defineKey(input);
        break;
      case 4:
        defineDone(input);
        break;
      default:
        store(input);
        break;
    }
    check();
  }

  uint64_t abandonedPools() const { return pools_ > 1 ? pools_ - 1 : 0; }

  void check() const {
    const bool defined = done_ || !typed_;
    FUZZ_CHECK(((inst_->flags & flagDefined) != 0) == defined);
    FUZZ_CHECK(inst_->definedKeyLength == static_cast<uint32_t>(total_));
    FUZZ_CHECK(inst_->dataLength == dataLength_);
    if ((flags_ & flagVarKey) != 0) return;
    FUZZ_CHECK(inst_->keyLength == layout_.keyLength);
    FUZZ_CHECK(inst_->sumOffset == layout_.sumOffset);
    FUZZ_CHECK(inst_->dataOffset == layout_.dataOffset);
    FUZZ_CHECK(inst_->recordSize == layout_.recordSize);
    const auto slot = static_cast<int64_t>((layout_.recordSize + 47) / 16 * 16);
    FUZZ_CHECK(inst_->recordBlockMax == (defined ? block_ / slot : block_));
    if (defined) FUZZ_CHECK(inst_->NumElements(inst_) == elements_);
  }

 private:
  void use(const Layout &layout) { layout_ = layout; }

  void defineKey(Input &input) {
    MORVAKeyDesc desc{};
    desc.fieldType = static_cast<uint32_t>(input.below(12));
    if (desc.fieldType > 7) desc.fieldType = 4;
    desc.fieldLength = takeLength(input);
    if (desc.fieldType == 1 && input.bit()) desc.fieldLength = 8;
    desc.fieldArg = input.byte();
    if (desc.fieldArg > 250) desc.fieldArg = static_cast<uint32_t>(input.word(4));
    desc.fieldOptions = input.byte();

    const bool open = typed_ && !done_;
    const bool reachesPacker = open && desc.fieldType >= 1 && desc.fieldType <= 5;
    bool taken = reachesPacker;
    if (host_.embedded()) {
      // Fields have to follow each other: after one that was refused none does.
      taken = taken && isGoodLength(desc.fieldType, desc.fieldLength) && packerTotal_ == total_;
    } else if (desc.fieldOptions > 240) {
      host_.recording()->failCall(Call::defineField);
      taken = false;
    }
    const MORVAStatus status = inst_->DefineKey(inst_, &desc);
    FUZZ_CHECK(status == (taken ? MORVA_OK : MORVA_INVALID));
    if (!host_.embedded()) {
      host_.recording()->failNever();
      if (reachesPacker) expectBlock(desc);
    }
    if (reachesPacker) total_ += desc.fieldLength;
    if (!taken) return;
    fields_.push_back(
        {desc.fieldType, desc.fieldLength, desc.fieldArg, (desc.fieldOptions & 1) != 0});
    packerTotal_ += desc.fieldLength;
    rowSize_ = std::max(rowSize_, uint64_t{desc.fieldArg} + desc.fieldLength);
  }

  void expectBlock(const MORVAKeyDesc &desc) const {
    FUZZ_CHECK(!host_.recording()->fields.empty());
    const PackerField &told = host_.recording()->fields.back();
    const bool terminated = desc.fieldType == 5;
    PackerField expected{};
    expected.fieldClass = (flags_ & flagUnordered) != 0 && (flags_ & flagOrdered) == 0 ? 1
                          : (flags_ & flagPackOpt) != 0                                ? 4
                                                                                       : 3;
    expected.fieldArg = desc.fieldArg;
    expected.fieldLength = expected.fieldLengthAgain = desc.fieldLength;
    expected.typeCode = expected.typeCodeAgain = terminated ? 2 : desc.fieldType;
    expected.subType = terminated ? 27 : 0;
    expected.fieldOffset = total_;
    expected.fieldOptions = terminated || desc.fieldType == 2 ? desc.fieldOptions & 1 : 0;
    FUZZ_CHECK(std::memcmp(&told, &expected, sizeof told) == 0);
  }

  void defineDone(Input &input) {
    const auto packerArg = static_cast<int32_t>(input.byte()) - 128;
    const uint32_t dataLength = takeLength(input);
    const bool refused = !host_.embedded() && input.byte() > 200;
    const bool open = typed_ && !done_;
    const Layout layout = layoutOf(total_, dataLength, flags_);
    const bool reachesPacker = open && fits(layout);
    const bool taken = host_.embedded() ? packerTotal_ == total_ : !refused;
    if (refused) host_.recording()->failCall(Call::finish);
    const MORVAStatus status = inst_->DefineDone(inst_, packerArg, dataLength);
    FUZZ_CHECK(status == (!reachesPacker ? MORVA_INVALID : taken ? MORVA_OK : MORVA_NO_MEMORY));
    if (!host_.embedded()) host_.recording()->failNever();
    if (!reachesPacker) return;
    use(layout);
    ++pools_;
    dataLength_ = dataLength;
    done_ = taken;
    if (host_.embedded()) return;
    const PackerClosing &told = host_.recording()->closings.back();
    FUZZ_CHECK(told.closingWord == ((flags_ & flagDefineOpt) != 0 ? 528u : 16u));
    FUZZ_CHECK(told.packerArg == packerArg && told.keyLength == total_);
    FUZZ_CHECK(host_.recording()->closingNames.back() == "lumaakey");
  }

  // Adds a row and looks at the key image of its record.
  void store(Input &input) {
    if (!typed_) return;
    std::string row = input.filled(std::min(rowSize_, kLargestStored));
    const bool none = input.byte() == 0;
    if (!done_) {
      FUZZ_CHECK(inst_->Add(inst_, row.data(), row.data(), 0) == MORVA_INVALID);
      return;
    }
    // Nobody fills the place of a field that was refused.
    if (packerTotal_ != total_ || rowSize_ > kLargestStored ||
        layout_.recordSize > 2 * kLargestStored)
      return;
    std::string image;
    for (const Field &field : fields_) {
      image += host_.embedded() ? packed(field, row) : row.substr(field.from, field.length);
    }
    if (none) image.assign(image.size(), '\0');

    const std::vector<char> exact(row.begin(), row.end());
    const void *key = none ? nullptr : exact.empty() ? "" : exact.data();
    const std::string data(dataLength_, 'd');
    const bool isNew = images_.insert(image).second;
    const bool stored = isNew || (flags_ & flagMultiData) != 0;
    FUZZ_CHECK(inst_->Add(inst_, data.data(), key, 0) == (stored ? MORVA_OK : MORVA_PRESENT));
    elements_ += stored ? 1 : 0;
    RecordNode *node = nullptr;
    FUZZ_CHECK(inst_->FindNode(inst_, key, 0, &node, nullptr) == MORVA_OK && node != nullptr);
    const std::string found(static_cast<const char *>(MORVARecordBase(node)), image.size());
    FUZZ_CHECK(found == image);
  }

  Host &host_;
  MORVAInst *inst_;
  uint32_t flags_;
  uint32_t dataLength_;
  int64_t block_;
  bool typed_ = false;
  bool done_ = false;
  Layout layout_{};
  // The lengths of all fields that came so far, and of those the packer took.
  uint64_t total_ = 0, packerTotal_ = 0;
  std::vector<Field> fields_;
  uint64_t rowSize_ = 0;
  std::set<std::string> images_;
  uint32_t elements_ = 0;
  uint64_t pools_ = 0;
};

bool isGood(const MORVAParms &parms) {
  const auto both = [&parms](uint32_t bits) { return (parms.flags & bits) == bits; };
  if (both(flagFixedKey | flagVarKey) || both(flagVarKey | flagMultiData)) return false;
  if (both(flagVarKey | flagSum)) return false;
  return !both(flagFixedKey) ||
         fits(layoutOf(uint64_t{parms.keyLength} + 12, parms.dataLength, parms.flags));
}

void run(Input input) {
  static constexpr int64_t kHints[] = {0, 1, 1000, INT64_MAX, INT64_MIN, -1, INT64_C(1) << 58};
  // The host of the run before is gone.
  qzextent(nullptr);
  Host host(input.bit());
  MORVAParms parms{};
  parms.flags = static_cast<uint32_t>(input.word(2)) & 0x7FF;
  // Mostly typed fields, which are what there is to define.
  if (input.byte() >= 32) parms.flags &= ~static_cast<uint32_t>(flagFixedKey | flagVarKey);
  parms.dataLength = takeLength(input);
  parms.keyLength = takeLength(input);
  parms.hashMethod = static_cast<int8_t>(input.byte());
  parms.hashExp = static_cast<int32_t>(input.below(10)) - 2;
  parms.memHint = kHints[input.below(std::size(kHints))];
  const MORVAParms before = parms;
  uint64_t abandonedPools = 0;

  MORVAInst *inst = host.ext()->Create(host.ext(), &parms, nullptr, "definition");
  FUZZ_CHECK((inst != nullptr) == isGood(before));
  if (inst != nullptr) {
    uint32_t flags = before.flags & ~static_cast<uint32_t>(flagDefined);
    const bool defined = (flags & (flagFixedKey | flagVarKey)) != 0;
    const uint32_t cleared = (flags & flagOrdered) != 0 ? flagUnordered : 0;
    FUZZ_CHECK(inst->flags == ((flags | (defined ? flagDefined : 0)) & ~cleared));
    FUZZ_CHECK(inst->modeBits == (flags & 0x64));
    const bool known = before.hashMethod >= 2 && before.hashMethod <= 9;
    FUZZ_CHECK(inst->hashMethod == (known ? static_cast<uint32_t>(before.hashMethod) : 2u));
    FUZZ_CHECK(parms.hashExp == (before.hashExp < 0 ? 8 : before.hashExp));
    FUZZ_CHECK(inst->buckets->mask + 1 == uint32_t{1} << parms.hashExp);
    Definition definition(host, inst, flags, before);
    definition.check();
    for (int step = 0; !input.empty() && step < 100; ++step) definition.step(input);
    abandonedPools = definition.abandonedPools();
    FUZZ_CHECK(inst->Destroy(inst) == MORVA_OK);
  }
  host.close(abandonedPools);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  run(Input(data, size));
  return 0;
}
