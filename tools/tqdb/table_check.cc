#include "table_check.h"

#include <set>

#include "engine/record_allocator.h"
#include "engine/tree_checker.h"
#include "platform/fault.h"
#include "records/key_text.h"
#include "table_files.h"

namespace tqdb::tool {
namespace {

class TableChecker {
 public:
  explicit TableChecker(const TableRef& Table) : files_(ReadTableFiles(Table)), keys_(Table) {}

  CheckReport Run() {
    report_.Keys = files_.Dict.KeyCount;
    report_.Places = files_.Places();
    for (int32_t R = 1; R <= report_.Places; ++R) {
      (files_.IsDeleted(R) ? report_.Deleted : report_.Live)++;
    }
    CheckDataLength();
    if (!keys_.IsOpen()) {
      Problem(keys_.Problem());
      return report_;
    }
    for (std::string& Line : engine::CheckKeyFile(keys_.Engine)) Problem(std::move(Line));
    CheckLastRecord();
    for (int K = 1; K <= files_.Dict.KeyCount; ++K) {
      if (KeyShapeAgrees(K)) CheckKeyAgainstData(K);
    }
    CheckDeletedStack();
    return report_;
  }

 private:
  void Problem(std::string Line) { report_.Problems.push_back(std::move(Line)); }

  void CheckDataLength() {
    const int64_t Length = files_.Dict.RecordLength;
    if (Length > 0 && files_.Data.size() % static_cast<size_t>(Length) != 0) {
      Problem("data file: " + std::to_string(files_.Data.size()) +
              " bytes are not a whole number of records of " + std::to_string(Length) + " bytes");
    }
  }

  void CheckLastRecord() {
    const int32_t Last = keys_.Engine.Header.LastRecord;
    if (report_.Places > Last) {
      Problem("header: the data file has " + std::to_string(report_.Places) +
              " record places, but the last record number handed out is " + std::to_string(Last) +
              " (new records would overwrite existing ones)");
    }
  }

  // The key file must describe the dictionary's keys before entries can be compared.
  bool KeyShapeAgrees(int K) {
    const auto& Header = keys_.Engine.Header;
    if (K > Header.KeyCount) {
      Problem("key " + std::to_string(K) + ": not in the key file, which has " +
              std::to_string(int{Header.KeyCount}) + " keys");
      return false;
    }
    const int Expected = files_.Dict.KeyTextLength(K);
    const int Stored = keys_.Engine.KeyLen[static_cast<size_t>(K)];
    if (Stored != Expected) {
      Problem("key " + std::to_string(K) + ": the key file keeps texts of " +
              std::to_string(Stored) + " characters, the dictionary defines " +
              std::to_string(Expected));
      return false;
    }
    return true;
  }

  void CheckKeyAgainstData(int K) {
    const std::string Key = "key " + std::to_string(K) + ": ";
    std::vector<int> Seen(static_cast<size_t>(report_.Places) + 1, 0);
    for (const engine::KeyEntry& Entry : engine::ListKeyEntries(keys_.Engine, K)) {
      const int32_t R = Entry.Record;
      if (R < 1 || R > report_.Places) {
        Problem(Key + "entry for record " + std::to_string(R) + ", beyond the data file");
        continue;
      }
      if (files_.IsDeleted(R)) {
        Problem(Key + "entry for deleted record " + std::to_string(R));
        continue;
      }
      const std::string Expected =
          KeyTextFromRecord(files_.Dict, static_cast<int16_t>(K), files_.Record(R), true);
      if (Entry.Text != Expected) {
        Problem(Key + "the entry for record " + std::to_string(R) + " holds \"" +
                Printable(Entry.Text) + "\", the record's key text is \"" + Printable(Expected) +
                "\"");
      }
      ++Seen[static_cast<size_t>(R)];
    }
    for (int32_t R = 1; R <= report_.Places; ++R) {
      const int Count = Seen[static_cast<size_t>(R)];
      if (files_.IsDeleted(R) || Count == 1) continue;
      Problem(Key + "record " + std::to_string(R) +
              (Count == 0 ? " is missing" : " is entered " + std::to_string(Count) + " times"));
    }
  }

  void CheckDeletedStack() {
    std::vector<int32_t> Stack;
    try {
      Stack = engine::ListDeletedRecords(keys_.Engine);
    } catch (const platform::Fault&) {
      return;  // the tree checker has reported the damaged stack
    }
    std::set<int32_t> OnStack;
    for (int32_t R : Stack) {
      const std::string Which = "deleted-record stack: record " + std::to_string(R);
      if (!OnStack.insert(R).second) {
        Problem(Which + " is there twice");
      } else if (R >= 1 && R <= report_.Places && !files_.IsDeleted(R)) {
        Problem(Which + " is a live record (it would be overwritten by the next new record)");
      }
    }
    const int32_t Count = keys_.Engine.Header.DeletedCount;
    if (static_cast<int64_t>(Stack.size()) != Count) {
      Problem("deleted-record stack: holds " + std::to_string(Stack.size()) +
              " numbers, the header counts " + std::to_string(Count));
    }
    for (int32_t R = 1; R <= report_.Places; ++R) {
      if (files_.IsDeleted(R) && !OnStack.count(R)) {
        Problem("deleted record " + std::to_string(R) +
                " is not on the deleted-record stack (its place is never reused)");
      }
    }
  }

  TableFiles files_;
  KeyFileReader keys_;
  CheckReport report_;
};

}  // namespace

CheckReport CheckTable(const TableRef& Table) { return TableChecker(Table).Run(); }

}  // namespace tqdb::tool
