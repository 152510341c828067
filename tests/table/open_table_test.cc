#include "table/open_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

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
using testing::FilesIn;
using testing::KeyFileBytes;
using testing::KeyOrder;
using testing::MessageCapture;
using testing::ScopedEnv;
using testing::TableSpec;
using testing::TempDir;
using testing::ZipMember;

// CLIEN: a code, a name and a balance; key 1 on the code, key 2 on the name's first
// eight characters then the code, key 3 on characters 3-6 of the code (by field id).
TableSpec Clients() {
  TableSpec T;
  T.Description = "Clientes";
  T.Fields = {{"Codigo", 10, 6, 1}, {"Nombre", 10, 12, 2}, {"Saldo", 3, 8, 3}};
  T.Keys = {{{{1, 1, 6}}}, {{{2, 1, 8}, {1, 1, 6}}}, {{{1, 3, 4, true}}}};
  return T;
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

std::string Joined(const std::vector<std::string>& Records) {
  std::string All;
  for (const std::string& R : Records) All += R;
  return All;
}

// Record numbers met walking key Key from the first entry to the end.
std::vector<int32_t> WalkForward(TQFile& Table, int16_t Key) {
  Table.SetIndex(Key);
  std::vector<int32_t> Seen;
  Table.MoveFirst();
  for (int Guard = 0; !Table.Eof() && Guard < 10000; ++Guard) {
    Seen.push_back(Table.BookMark());
    Table.MoveNext();
  }
  return Seen;
}

std::vector<int32_t> WalkBackward(TQFile& Table, int16_t Key) {
  Table.SetIndex(Key);
  std::vector<int32_t> Seen;
  Table.MoveLast();
  for (int Guard = 0; !Table.Bof() && Guard < 10000; ++Guard) {
    Seen.insert(Seen.begin(), Table.BookMark());
    Table.MovePrevious();
  }
  return Seen;
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
  void ExpectEveryKeyWalksInOrder(TQFile& Table) {
    for (int16_t Key = 1; Key <= 3; ++Key) {
      const std::vector<int32_t> Expected = KeyOrder(Clients(), Key, Records);
      EXPECT_EQ(WalkForward(Table, Key), Expected) << "key " << Key;
      EXPECT_EQ(WalkBackward(Table, Key), Expected) << "key " << Key;
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
}

TEST_F(OpenTableTest, AMissingOrEmptyKeyFileIsRebuiltSilently) {
  WriteTable(150, /*WithKeyFile=*/false);
  for (bool Empty : {true, false}) {  // empty first: a rebuild writes "CLIEN01.TQC"
    SCOPED_TRACE(Empty ? "empty" : "missing");
    Data.Write("CLIEN01.tqc", "");
    if (!Empty) fs::remove(Data.File("CLIEN01.tqc"));
    MessageCapture Shown;
    std::vector<int32_t> Progress;
    TQFile Table;
    Table.OnProgress([&](int32_t Percentage) { Progress.push_back(Percentage); });
    EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);
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
  for (int16_t Key : {1, 3}) {
    EXPECT_EQ(WalkForward(Table, Key), KeyOrder(Gap, Key, Records)) << "key " << Key;
    EXPECT_EQ(WalkBackward(Table, Key), KeyOrder(Gap, Key, Records)) << "key " << Key;
  }
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
  // An empty key file that may only be read cannot be created again: status 23.
  fs::remove(Data.File("CLIEN01.tqc"));
  Data.Write("CLIEN01.tqc", "");
  fs::permissions(Dict.Path(), fs::perms(0755));
  const testing::ReadOnlyFiles ReadOnly(Data.Path());
  EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 23);
  ASSERT_EQ(Shown.Messages.size(), 2u);
  // The upper-cased command holds no character of code 93 or more: the fault is shown, not the path.
  EXPECT_EQ(Shown.Messages[1].first, "Permiso denegado");
  EXPECT_EQ(Shown.Messages[1].second, MessageIcon::Critical);
}

TEST_F(OpenTableTest, WithoutATableDirectoryTheSettingNamesTheDictionaryDirectory) {
  WriteTable(30, /*WithKeyFile=*/false);
  const std::string Settings =
      Dict.Write("brinvale.ini", "[Settings]\nDirectory=" + Dict.Dir() + "\n");
  ScopedEnv UseSettings("TQDB_SETTINGS", Settings.c_str());
  TQFile Table;
  EXPECT_EQ(Table.OpenFile(TableFile()), 0);  // builds the key file from that dictionary too
  ExpectEveryKeyWalksInOrder(Table);
}

TEST_F(OpenTableTest, AnEmptyOrMissingDataFileOpensEmpty) {
  testing::WriteDictionary(Dict.Dir(), "CLIEN", Clients());
  for (int Round = 0; Round < 2; ++Round) {  // first missing (created empty), then empty
    TQFile Table;
    EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);
    EXPECT_EQ(fs::file_size(Data.File("CLIEN01.tqd")), 0u);
    Table.MoveFirst();
    EXPECT_TRUE(Table.Bof() && Table.Eof());
    EXPECT_EQ(Table.RecordCount(), 0);
  }
}

TEST_F(OpenTableTest, AMissingDictionaryIsReportedAndLeftBehindEmpty) {
  // A directory given without its last "/" is shown with it, as Linux writes it.
  for (const auto& [Where, Shows] : {std::pair{Dict.Dir(), Dict.Dir()},
                                     std::pair{Dict.Dir() + "no/such", Dict.Dir() + "no/such/"}}) {
    MessageCapture Shown;
    TQFile Table;
    try {
      Table.OpenFile(TableFile(), Where);
      ADD_FAILURE() << "opened a table without a dictionary";
    } catch (const TQError& E) {
      EXPECT_EQ(E.Number(), 50999);
      EXPECT_EQ(E.Description(), "La tabla CLIEN no existe en la ruta: " + Shows);
    }
    ASSERT_EQ(Shown.Messages.size(), 1u);
    EXPECT_EQ(Shown.Messages[0].second, MessageIcon::Critical);
    EXPECT_EQ(Shown.Messages[0].first,
              "La tabla para la base de datos no existe:\r\n" + Shows + "CLIEN.tqa");
  }
  EXPECT_TRUE(fs::exists(Dict.File("CLIEN.tqa")));
  EXPECT_EQ(fs::file_size(Dict.File("CLIEN.tqa")), 0u);
}

// Tables copied in with upper-case names open under lower-case ones and the other way
// round, with "\\" as well as "/" before the name; nothing new is created beside them.
TEST_F(OpenTableTest, FileNamesAreFoundWhateverTheirCase) {
  Records = ClientRecords(12);
  for (bool UpperOnDisk : {true, false}) {
    const auto Name = [&](std::string Upper) {
      if (!UpperOnDisk) std::transform(Upper.begin(), Upper.end(), Upper.begin(), ::tolower);
      return Upper;
    };
    TempDir Here;
    Dict.Write(Name("CLIEN.TQA"), testing::DictionaryBytes(Clients()));
    Here.Write(Name("CLIEN01.TQD"), Joined(Records));
    Here.Write(Name("CLIEN01.TQC"), KeyFileBytes(Clients(), Records));
    TQFile Table;
    const std::string Asked = UpperOnDisk ? "clien01" : "CLIEN01";
    EXPECT_EQ(Table.OpenFile(Here.Path() + "\\" + Asked, Dict.Dir()), 0);
    EXPECT_EQ(Table.State().DataPath, Here.Path() + "\\");
    ExpectEveryKeyWalksInOrder(Table);
    EXPECT_EQ(std::distance(fs::directory_iterator(Here.Path()), fs::directory_iterator()), 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(Dict.Path()), fs::directory_iterator()), 1);
    fs::remove(Dict.File(Name("CLIEN.TQA")));
  }
}

class KillDBTest : public OpenTableTest {
 protected:
  std::string AuditFolder() const { return Audit.Dir() + "Brinvale/Auditoria/"; }
  TempDir Audit;
  ScopedEnv Tmp{"TMPDIR", Audit.Dir().c_str()};
};

TEST_F(KillDBTest, ArchivesAndDeletesTheDataAndKeyFilesWhenConfirmed) {
  WriteTable(8);
  const std::string DataBytes = Data.Read("CLIEN01.tqd");
  const std::string KeyBytes = Data.Read("CLIEN01.tqc");
  TQFile Table;
  ASSERT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);
  Table.KillDB(false);
  EXPECT_TRUE(FilesIn(AuditFolder()).empty());
  Table.KillDB(true);

  EXPECT_FALSE(fs::exists(Data.File("CLIEN01.tqd")));
  EXPECT_FALSE(fs::exists(Data.File("CLIEN01.tqc")));
  EXPECT_TRUE(fs::exists(Dict.File("CLIEN.tqa")));
  const std::vector<std::string> Names = FilesIn(AuditFolder());
  ASSERT_EQ(Names.size(), 2u);
  const std::regex Stamp(R"( \d{4}-\d\d-\d\d \d\d \d\d \d\d \.zip)");
  EXPECT_TRUE(std::regex_match(Names[0].substr(11), Stamp)) << Names[0];
  EXPECT_EQ(Names[0].substr(0, 11), "CLIEN01.TQc");
  EXPECT_EQ(Names[1].substr(0, 11), "CLIEN01.TQd");
  // Each archive holds the file under its own name, with the original bytes.
  const auto [DataMember, ArchivedData] = ZipMember(AuditFolder() + Names[1]);
  const auto [KeyMember, ArchivedKeys] = ZipMember(AuditFolder() + Names[0]);
  EXPECT_EQ(DataMember, "CLIEN01.tqd");
  EXPECT_EQ(KeyMember, "CLIEN01.tqc");
  EXPECT_TRUE(ArchivedData == DataBytes);
  EXPECT_TRUE(ArchivedKeys == KeyBytes);
}

TEST_F(KillDBTest, RefusesWhileAnotherObjectHasTheTableOpen) {
  WriteTable(8);
  TQFile Reader;
  TQFile Killer;
  ASSERT_EQ(Reader.OpenFile(TableFile(), Dict.Dir()), 0);
  ASSERT_EQ(Killer.OpenFile(TableFile(), Dict.Dir()), 0);
  try {
    Killer.KillDB(true);
    ADD_FAILURE() << "deleted a table another object holds open";
  } catch (const TQError& E) {
    EXPECT_EQ(E.Number(), 70);
  }
  EXPECT_TRUE(fs::exists(Data.File("CLIEN01.tqd")));
  EXPECT_TRUE(FilesIn(AuditFolder()).empty());
  ExpectEveryKeyWalksInOrder(Reader);

  Reader.CloseDB();
  Killer.KillDB(true);
  EXPECT_FALSE(fs::exists(Data.File("CLIEN01.tqd")));
}

TEST_F(OpenTableTest, ADataFileWithAPartialRecordOpensAndCountsByRounding) {
  Records = ClientRecords(3);
  const std::string All = Joined(Records);
  testing::WriteDictionary(Dict.Dir(), "CLIEN", Clients());
  Data.Write("CLIEN01.tqd", All.substr(0, 2 * 26 + 14));  // records of 26 bytes
  TQFile Table;
  EXPECT_EQ(Table.OpenFile(TableFile(), Dict.Dir()), 0);
  EXPECT_EQ(Table.RecordCount(), 3);
  Data.Write("CLIEN01.tqd", All.substr(0, 2 * 26 + 13));  // exactly 2.5
  TQFile Again;
  EXPECT_EQ(Again.OpenFile(TableFile(), Dict.Dir()), 0);
  EXPECT_EQ(Again.RecordCount(), 2);
}

}  // namespace
}  // namespace tqdb
