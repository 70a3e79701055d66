#include <unistd.h>

#include <vector>

#include "commands.h"
#include "error.h"
#include "library.h"
#include "statistics.h"
#include "table_input.h"
#include "text.h"
#include "tiered_table.h"
#include "writer.h"

namespace morva::cli {

namespace {

class Distinct {
 public:
  explicit Distinct(const Options &options)
      : options_(options),
        input_(options.files[0], options),
        keys_(input_.columns().findLists(options.by)),
        out_(STDOUT_FILENO, kStandardOutput, input_.dialect(), options.comment),
        library_(options.library, options.memoryLimit),
        table_(library_, TieredTable::Kind::kKeys, input_.reader().size()) {
    input_.needColumns(keys_.columns());
    // The rest of a row is passed on as it is.
    input_.needOnlyThese();
    input_.reader().setBeforeWaiting([this] { out_.flush(); });
  }

  void run() {
    writeHeader();
    try {
      while (input_.next()) {
        if (isNew()) writeRow();
      }
    } catch (const UnwritableField &error) {
      out_.flush();
      throw Error(input_.place() + ": " + error.what() + "; the output ends before this row");
    } catch (const Error &) {
      // What was found before is right, and is passed on.
      out_.flush();
      throw;
    }
    out_.flush();
    input_.reportSkipped();
    if (!options_.stats) return;
    statistics_.add("rows", input_.rows());
    statistics_.add("groups", table_.keys());
    statistics_.print(input_.rows(), library_);
  }

 private:
  void writeHeader() {
    if (options_.noHeader) return;
    const std::vector<std::string> &names = input_.columns().names();
    if (options_.keysOnly) {
      for (const size_t column : keys_.columns()) out_.field(names[column]);
    } else {
      for (const std::string &name : names) out_.field(name);
    }
    out_.endRow();
  }

  bool isNew() {
    try {
      return table_.insert(keys_.make(input_.row()));
    } catch (const OutOfMemory &error) {
      throw Error(input_.place() + ": " + error.what() + " with " +
                  counted(table_.keys(), "value") + "; the output ends before this row");
    }
  }

  void writeRow() {
    const Record &row = input_.row();
    if (options_.keysOnly) {
      for (const size_t column : keys_.columns()) out_.field(row.fields[column]);
    } else {
      out_.record(row, input_.dialect());
    }
    out_.endRow();
  }

  const Options &options_;
  Statistics statistics_;
  TableInput input_;
  KeyMaker keys_;
  Writer out_;
  Library library_;
  TieredTable table_;
};

}  // namespace

void runDistinct(const Options &options) {
  Distinct(options).run();
}

}  // namespace morva::cli
