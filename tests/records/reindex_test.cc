// ReIndex: the key file built anew from the data file, only while nobody else holds the
// table.
#include "records/reindex.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/tree_checker.h"
#include "support/key_agreement.h"
#include "support/open_table.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using testing::OpenTable;
using testing::RecordBytes;
using testing::TableSpec;

TableSpec ReIndexSpec() {
  TableSpec Spec;
  Spec.Description = "Reindexar";
  Spec.Fields = {{"CODE", 10, 5, 1}, {"NAME", 10, 8, 2}, {"QTY", 4, 4, 3}};
  Spec.Keys = {{{{2, 1, 8}}}, {{{1, 1, 5}}}, {{{3, 1, 4}}}};
  return Spec;
}

// 250 records; every seventh is deleted.
std::vector<std::string> ReIndexRecords() {
  const TableSpec Spec = ReIndexSpec();
  std::vector<std::string> Records;
  for (int I = 1; I <= 250; ++I) {
    Records.push_back(I % 7 == 0 ? testing::DeletedRecordBytes(Spec)
                                 : RecordBytes(Spec, {std::to_string(10000 + I),
                                                      "n" + std::to_string(I % 13), I * 3}));
  }
  return Records;
}

class ReIndexTest : public ::testing::Test {
 protected:
  ReIndexTest() : Table(ReIndexSpec(), ReIndexRecords()), T(Table.File()) {}
  OpenTable Table;
  TQFile& T;
};

TEST_F(ReIndexTest, BuildsTheKeysAgainFromTheDataFile) {
  // Damage the key file under the table: ReIndex does not read it.
  const std::string Damaged(4096, 'x');
  Table.Dir().Write("TABLA01.tqc", Damaged);
  std::vector<int32_t> Progress;
  T.OnProgress([&](int32_t Percentage) { Progress.push_back(Percentage); });

  const double Took = T.ReIndex();
  EXPECT_EQ(T.LastError(), 0);
  EXPECT_GE(Took, 0.0);
  EXPECT_LT(Took, 1.0);  // minutes.seconds: well under a minute
  EXPECT_FALSE(Progress.empty());
  EXPECT_NE(Table.Dir().Read("TABLA01.tqc"), Damaged);

  EXPECT_EQ(testing::KeyDataAgreement(T), "");
  EXPECT_TRUE(engine::CheckKeyFile(T.State().Engine).empty());
  EXPECT_EQ(T.DeletedRecordCount(), 35);  // the deleted records wait for reuse
  T.SetIndex(2);
  EXPECT_EQ(T.SeekKey("10100"), 100);

  // The table works on: the next AddNew takes the last deleted number.
  T.AddNew();
  T.SetFields("CODE", "99999");
  T.Update();
  EXPECT_EQ(T.BookMark(), 245);
  EXPECT_EQ(testing::KeyDataAgreement(T), "");
}

TEST_F(ReIndexTest, IsRefusedWhileAnotherObjectHoldsTheTable) {
  const std::string KeysBefore = Table.Dir().Read("TABLA01.tqc");
  {
    auto Other = Table.Open();
    try {
      T.ReIndex();
      FAIL() << "ReIndex went on while the table was in use";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), 70);
    }
    EXPECT_EQ(Table.Dir().Read("TABLA01.tqc"), KeysBefore);
    T.SetIndex(1);
    T.MoveFirst();  // the key file is still open and usable
    EXPECT_EQ(T.LastError(), 0);
  }
  EXPECT_NO_THROW(T.ReIndex());
  // Afterwards the table is shared again: another object opens it and works.
  auto Later = Table.Open();
  Later->SetIndex(2);
  EXPECT_EQ(Later->SeekKey("10001"), 1);
  EXPECT_EQ(testing::KeyDataAgreement(*Later), "");
}

}  // namespace
}  // namespace tqdb
