// Links to related tables: the cache of linked tables and the link filters.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/file_pool.h"
#include "support/query_tables.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::KeySpec;
using testing::TableSpec;

// Invoices (FACTU) name their customer (CLIEN) by CLIENTE, the customers' key 1.
class LinksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TableSpec Customers;
    Customers.Description = "CLIENTES";
    Customers.Fields = {{"CLIENTE", 11, 6, 1}, {"NOMBRE", 11, 12, 2}, {"ZONA", 11, 4, 3}};
    Customers.Keys = {KeySpec{{{1, 1, 6}}}, KeySpec{{{2, 1, 12}}}};
    testing::WriteTable(Dir, "CLIEN", "07", Customers,
                        {testing::RecordBytes(Customers, {"C1", "GARCIA", "NORTE"}),
                         testing::RecordBytes(Customers, {"C2", "LOPEZ", "SUR"}),
                         testing::RecordBytes(Customers, {"C1", "GARCIA BIS", "SUR"}),
                         testing::RecordBytes(Customers, {"A OR B", "RARO", "SUR"}),
                         testing::RecordBytes(Customers, {"A", "SOLO A", "OESTE"})});

    TableSpec Invoices;
    Invoices.Description = "FACTURAS";
    Invoices.Fields = {{"NUMERO", 11, 4, 1}, {"CLIENTE", 11, 6, 2}, {"IMPORTE", 3, 8, 3}};
    Invoices.Keys = {KeySpec{{{1, 1, 4}}}};
    const std::string Path =
        testing::WriteTable(Dir, "FACTU", "07", Invoices,
                            {testing::RecordBytes(Invoices, {"F1", "C2", 10.0}),
                             testing::RecordBytes(Invoices, {"F2", "C1", 20.0}),
                             testing::RecordBytes(Invoices, {"F3", "C9", 30.0}),
                             testing::RecordBytes(Invoices, {"F4", "A OR B", 40.0})});
    File = testing::OpenTable(Dir, Path);
  }

  // Makes invoice Number the current record.
  void OnInvoice(const std::string& Number) { File->Filter("NUMERO = " + Number); }

  testing::TempDir Dir;
  std::unique_ptr<TQFile> File;
};

TEST_F(LinksTest, LinkParentReadsTheMatchingRecordsFieldOrNothing) {
  OnInvoice("F1");
  EXPECT_EQ(File->LinkParent("CLIEN", "NOMBRE").ToString(), "LOPEZ       ");
  OnInvoice("F2");
  EXPECT_EQ(File->LinkParent("CLIEN", "NOMBRE").ToString(), "GARCIA      ");
  EXPECT_EQ(File->LinkParent("CLIEN", Variant(int16_t{3})).ToString(), "NORT");
  OnInvoice("F3");
  EXPECT_TRUE(File->LinkParent("CLIEN", "NOMBRE").IsEmpty());
  TQFile& Linked = *File->State().LinkedTables[0].Table;
  EXPECT_TRUE(Linked.Bof() && Linked.Eof());
  // "A OR B" is not quoted: the link filter reads CLIENTE = A OR B, and "B" adds nothing.
  OnInvoice("F4");
  EXPECT_EQ(File->LinkParent("CLIEN", "NOMBRE").ToString(), "SOLO A      ");
}

TEST_F(LinksTest, LinkChildAddsTheCallersCondition) {
  OnInvoice("F2");
  EXPECT_EQ(File->LinkChild("CLIEN", "ZONA = SUR", "NOMBRE").ToString(), "GARCIA BIS  ");
  EXPECT_EQ(File->LinkChild("CLIEN", "", "NOMBRE").ToString(),
            File->LinkParent("CLIEN", "NOMBRE").ToString());
  // The linked table keeps the last link filter in force.
  EXPECT_EQ(File->State().LinkedTables[0].Table->State().FilterList,
            (std::vector<int32_t>{0, 1, 3}));
}

TEST_F(LinksTest, TwoCallsOpenTheLinkedTableOnceAndNamesAreComparedExactly) {
  OnInvoice("F1");
  File->LinkParent("CLIEN", "NOMBRE");
  const TQFile* First = File->State().LinkedTables[0].Table.get();
  platform::ResetIoCounters();
  File->LinkChild("CLIEN", "ZONA = SUR", "NOMBRE");
  EXPECT_EQ(platform::GetIoCounters().Opens, 0u);
  EXPECT_EQ(File->State().LinkedTables[0].Table.get(), First);
  EXPECT_TRUE(File->State().LinkedTables[1].Name.empty());
  EXPECT_EQ(File->LinkParent("clien", "NOMBRE").ToString(), "LOPEZ       ");
  EXPECT_EQ(File->State().LinkedTables[0].Name, "CLIEN");
  EXPECT_EQ(File->State().LinkedTables[1].Name, "clien");
}

// Names differing in case are different links: eleven fit, a twelfth fails with error 91.
TEST_F(LinksTest, ATwelfthDistinctNameFails) {
  OnInvoice("F1");
  auto Name = [](int Mask) {
    std::string Text = "CLIEN";
    for (int I = 0; I < 5; ++I) {
      if (Mask & (1 << I)) Text[I] = static_cast<char>(Text[I] - 'A' + 'a');
    }
    return Text;
  };
  for (int I = 0; I < 11; ++I) {
    EXPECT_EQ(File->LinkParent(Name(I), "NOMBRE").ToString(), "LOPEZ       ") << Name(I);
  }
  try {
    File->LinkParent(Name(11), "NOMBRE");
    FAIL() << "a twelfth table was linked";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 91);
  }
  EXPECT_EQ(File->LinkParent(Name(10), "ZONA").ToString(), "SUR ");
}

TEST_F(LinksTest, ATableThatCannotOpenLeavesItsEntryFree) {
  OnInvoice("F1");
  EXPECT_THROW(File->LinkParent("NADIE", "NOMBRE"), TQError);
  EXPECT_TRUE(File->State().LinkedTables[0].Name.empty());
  EXPECT_EQ(File->LinkParent("CLIEN", "NOMBRE").ToString(), "LOPEZ       ");
}

}  // namespace
}  // namespace tqdb::query
