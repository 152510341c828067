// Opening tables whose files were written byte by byte (the key file too), rebuilding
// missing key files, and deleting tables.
#include "table/open_table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "support/error_of.h"
#include "support/file_checks.h"
#include "support/key_file_bytes.h"
#include "support/scoped_env.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace tqdb {
namespace {

namespace fs = std::filesystem;
using testing::ErrorOf;
using testing::FaultOf;
using testing::FilesIn;
using testing::KeyFileBytes;
using testing::MessageCapture;
using testing::ScopedEnv;
using testing::TableSpec;
using testing::TempDir;

// CLIEN: a code, a name and a balance; key 1 on the code, key 2 on the name's first
// eight characters then the code, key 3 on characters 3-6 of the code (by field id).
TableSpec Clients() {
  return {"Clientes",
          {{"Codigo", 10, 6, 1}, {"Nombre", 10, 12, 2}, {"Saldo", 3, 8, 3}},
          {{{{1, 1, 6}}}, {{{2, 1, 8}, {1, 1, 6}}}, {{{1, 3, 4, true}}}}};
}

std::vector<std::string> ClientRecords(int Count) {
  static const char* const kNames[] = {"GARCIA", "lopez", "MARTIN", "garcia", "PEREZ", "ABAD"};
  std::vector<std::string> Records;
  for (int I = 1; I <= Count; ++I) {
    char Code[8];
    std::snprintf(Code, sizeof Code, "%06d", (I * 7919) % 100000);
    Records.push_back(testing::RecordBytes(Clients(), {Code, kNames[I % 6], I * 1.5}));
  }
  return Records;
}

class OpenTableTest : public ::testing::Test {
 protected:
  // Writes the dictionary and the data file, and the key file unless told not to.
  void WriteTable(int Count, bool WithKeyFile = true) {
    Records = ClientRecords(Count);
    testing::WriteDictionary(Dict.Dir(), "CLIEN", Clients());
    testing::WriteDataFile(Data.File("CLIEN01.tqd"), Records);
    if (WithKeyFile) Data.Write("CLIEN01.tqc", KeyFileBytes(Clients(), Records));
  }
  // Every key walks forwards and backwards in the order the records give.
  void ExpectEveryKeyWalksInOrder(TQFile& Table, const TableSpec& Spec = Clients(),
                                  std::initializer_list<int16_t> Keys = {1, 2, 3}) {
    for (const int16_t Key : Keys) {
      Table.SetIndex(Key);
      std::vector<int32_t> Forward, Backward;
      for (Table.MoveFirst(); !Table.Eof() && Forward.size() < 10000; Table.MoveNext()) {
        Forward.push_back(Table.BookMark());
      }
      for (Table.MoveLast(); !Table.Bof() && Backward.size() < 10000; Table.MovePrevious()) {
        Backward.insert(Backward.begin(), Table.BookMark());
      }
      const std::vector<int32_t> Expected = testing::KeyOrder(Spec, Key, Records);
      EXPECT_EQ(Forward, Expected) << "key " << Key;
      EXPECT_EQ(Backward, Expected) << "key " << Key;
    }
  }
  std::string TableFile() const { return Data.File("CLIEN01"); }

  TempDir Dict;
  TempDir Data;
  std::vector<std::string> Records;
};

TEST_F(OpenTableTest, OpensATableWrittenByteByByteAndWalksEveryKey) {
  WriteTable(150);
  MessageCapture Shown;
  TQFile Table;
  EXPECT_EQ(Table.OpenFile(Data.Dir() + "CLIEN01.anything", Dict.Dir()), 0);
  const TableState& S = Table.State();
  EXPECT_EQ(S.DataPath, Data.Dir());
  EXPECT_EQ(S.BaseName, "CLIEN");
  EXPECT_EQ(S.TableSuffix, "01");
  EXPECT_EQ(S.DictionaryDir, Dict.Dir());
  EXPECT_EQ(Table.RecordCount(), 150);
  ExpectEveryKeyWalksInOrder(Table);
  const int16_t Number = Table.DataFileNo();
  Table.Filter("NOMBRE = ABAD");                          // a view does not outlive the open
  ASSERT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);  // again: the same data file number
  EXPECT_EQ(Table.DataFileNo(), Number);
  EXPECT_EQ(Table.RecordCount(), 150);
  ExpectEveryKeyWalksInOrder(Table);
  EXPECT_TRUE(Shown.Messages.empty());
  Table.SetBookMark(7);
  Table.SetPosition(3);  // without a filter nothing changes
  EXPECT_EQ(Table.Position(), 7);
}

// Empty first (a rebuild writes "CLIEN01.TQC"), then missing, then missing with the
// dictionary directory named by the setting.
TEST_F(OpenTableTest, AMissingOrEmptyKeyFileIsRebuiltSilently) {
  WriteTable(150, /*WithKeyFile=*/false);
  const std::string Settings =
      Dict.Write("brinvale.ini", "[Settings]\nDirectory=" + Dict.Dir() + "\n");
  for (int Round = 0; Round < 3; ++Round) {
    SCOPED_TRACE(Round);
    fs::remove(Data.File("CLIEN01.TQC"));
    Data.Write("CLIEN01.tqc", "");
    if (Round > 0) fs::remove(Data.File("CLIEN01.tqc"));
    MessageCapture Shown;
    std::vector<int32_t> Progress;
    TQFile Table;
    Table.OnProgress([&](int32_t Percentage) { Progress.push_back(Percentage); });
    ScopedEnv UseSettings("TQDB_SETTINGS", Settings.c_str());
    EXPECT_EQ(Round < 2 ? Table.OpenFile(TableFile(), Dict.Dir()) : Table.OpenFile(TableFile()), 0);
    EXPECT_EQ(Progress, std::vector<int32_t>{67});  // after 100 of 150 records
    EXPECT_TRUE(Shown.Messages.empty());
    ExpectEveryKeyWalksInOrder(Table);
  }
  // A dictionary may leave key numbers unused: keys 1 and 3 only.
  TableSpec Gap = Clients();
  Gap.Keys[1].Segments.clear();
  testing::WriteDictionary(Dict.Dir(), "CLIEN", Gap);
  for (const char* Name : {"CLIEN01.tqc", "CLIEN01.TQC"}) fs::remove(Data.File(Name));
  TQFile Table;
  ASSERT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);
  Table.AddNew();
  Table.SetFields("CODIGO", "999999");
  Table.Update();
  Table.Delete(2);
  Records.push_back(testing::RecordBytes(Gap, {"999999", "", 0.0}));
  Records[1] = testing::DeletedRecordBytes(Gap);
  ExpectEveryKeyWalksInOrder(Table, Gap, {1, 3});
}

TEST_F(OpenTableTest, AKeyFileThatCannotBeOpenedIsReportedAndNotRebuilt) {
  WriteTable(4, /*WithKeyFile=*/false);
  fs::create_directory(Data.File("CLIEN01.tqc"));  // there, but no file to open
  MessageCapture Shown;
  std::vector<int32_t> Progress;
  TQFile Table;
  Table.OnProgress([&](int32_t Percentage) { Progress.push_back(Percentage); });
  EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 26);
  ASSERT_EQ(Shown.Messages.size(), 1u);
  EXPECT_EQ(Shown.Messages[0].second, MessageIcon::Critical);
  EXPECT_EQ(Shown.Messages[0].first, "Error indexados 26  O/" + Data.File("CLIEN01.tqc") + "/" +
                                         std::to_string(Table.DataFileNo()));
  EXPECT_TRUE(Progress.empty());
  // An empty key file that may only be read cannot be created again: status 23. The message
  // names the key file when the upper-cased command holds a character of code 93 or more
  // ("]"), else the fault.
  fs::permissions(Dict.Path(), fs::perms(0755));
  const TempDir Odd;
  const std::string Where = Odd.File("]");
  fs::create_directory(Where);
  fs::copy_file(Data.File("CLIEN01.tqd"), Where + "/CLIEN01.tqd");
  Odd.Write("]/CLIEN01.tqc", "");
  fs::permissions(Odd.Path(), fs::perms(0755));
  {
    const testing::ReadOnlyFiles ReadOnly(Where);
    EXPECT_EQ(Table.OpenFile(Where + "/CLIEN01", Dict.Dir()), 23);
  }
  ASSERT_EQ(Shown.Messages.size(), 2u);
  EXPECT_EQ(Shown.Messages[1].first, Where + "/CLIEN01.tqc");
  fs::remove(Data.File("CLIEN01.tqc"));
  Data.Write("CLIEN01.tqc", "");
  const testing::ReadOnlyFiles ReadOnly(Data.Path());
  EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 23);
  ASSERT_EQ(Shown.Messages.size(), 3u);
  EXPECT_EQ(Shown.Messages[2].first, "Permiso denegado");
  EXPECT_EQ(Shown.Messages[2].second, MessageIcon::Critical);
}

// A directory given without its last "/" is shown with it, as Linux writes it.
TEST_F(OpenTableTest, AMissingDictionaryIsReportedAndLeftBehindEmpty) {
  const std::string Shows = Dict.Dir();
  MessageCapture Shown;
  TQFile Table;
  EXPECT_EQ(ErrorOf([&] { Table.OpenFile(TableFile(), Dict.Path()); }),
            std::make_pair(50999, "La tabla CLIEN no existe en la ruta: " + Shows));
  ASSERT_EQ(Shown.Messages.size(), 1u);
  EXPECT_EQ(Shown.Messages[0].second, MessageIcon::Critical);
  EXPECT_EQ(Shown.Messages[0].first,
            "La tabla para la base de datos no existe:\r\n" + Shows + "CLIEN.tqa");
  EXPECT_EQ(Dict.Read("CLIEN.tqa"), "");
  EXPECT_TRUE(fs::exists(Dict.File("CLIEN.tqa")));
}

// KillDB refuses while another object has the table open; confirmed, it archives the data
// and key files, each under its own name and a time stamp, and deletes them.
TEST_F(OpenTableTest, KillDBArchivesAndDeletesTheDataAndKeyFiles) {
  TempDir Audit;
  ScopedEnv Tmp{"TMPDIR", Audit.Path().c_str()};
  const std::string Folder = Audit.Dir() + "Brinvale/Auditoria/";
  WriteTable(8);
  const std::string DataBytes = Data.Read("CLIEN01.tqd");
  TQFile Reader, Killer;
  ASSERT_EQ(Reader.OpenFile(TableFile(), Dict.Dir()), 0);
  ASSERT_EQ(Killer.OpenFile(TableFile(), Dict.Dir()), 0);
  EXPECT_EQ(FaultOf([&] { Killer.KillDB(true); }), 70);
  EXPECT_TRUE(FilesIn(Folder).empty());
  Reader.CloseDB();
  Killer.KillDB(true);
  EXPECT_EQ(FilesIn(Data.Path()), std::vector<std::string>{});
  const std::vector<std::string> Names = FilesIn(Folder);
  ASSERT_EQ(Names.size(), 2u);
  EXPECT_TRUE(std::regex_match(Names[0],
                               std::regex(R"(CLIEN01\.TQc \d{4}-\d\d-\d\d \d\d \d\d \d\d \.zip)")))
      << Names[0];
  EXPECT_EQ(testing::ZipMember(Folder + Names[1]),
            std::make_pair(std::string("CLIEN01.tqd"), DataBytes));
}

}  // namespace
}  // namespace tqdb
