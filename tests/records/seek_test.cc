// Seeking on the current key with every seek option, and the special seek key.
#include "records/seek.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fault.h"
#include "support/open_table.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace tqdb {
namespace {

using testing::OpenTable;
using testing::RecordBytes;
using testing::TableSpec;

// Key 1 NAME; key 2 NAME + CODE; key 3 the date; key 4 the 16-bit QTY (binary bytes).
TableSpec SeekSpec() {
  TableSpec Spec;
  Spec.Description = "Busquedas";
  Spec.Fields = {{"CODE", 10, 4, 1}, {"NAME", 10, 8, 2}, {"FECHA", 5, 6, 3}, {"QTY", 1, 2, 4}};
  Spec.Keys = {{{{2, 1, 8}}}, {{{2, 1, 8}, {1, 1, 4}}}, {{{3, 1, 6}}}, {{{4, 1, 2}}}};
  return Spec;
}

// Key 1 order: BRAVO 1, DELTA 2, DELTA 4, DELTA 5, FOXTROT 3.
std::vector<std::string> SeekRecords() {
  const TableSpec Spec = SeekSpec();
  return {RecordBytes(Spec, {"0001", "BRAVO", "A50102", 7}),
          RecordBytes(Spec, {"0002", "DELTA", "991231", 5}),
          RecordBytes(Spec, {"0003", "FOXTROT", "A00101", -3}),
          RecordBytes(Spec, {"0004", "DELTA", "A50102", 5}),
          RecordBytes(Spec, {"0005", "DELTA", "800615", 300})};
}

class SeekTest : public ::testing::Test {
 protected:
  SeekTest() : Table(SeekSpec(), SeekRecords()), T(Table.File()) {}

  // Seeks and checks that the result is also the current record.
  int32_t Seek(const Variant& Values, int32_t Option) {
    const int32_t Found = T.SeekKey(Values, Option);
    EXPECT_EQ(Found, T.BookMark());
    return Found;
  }
  std::string SpecialKeyOf(int32_t Record) {
    T.SetBookMark(Record);
    return T.GetSpecialSeekKeys();
  }

  OpenTable Table;
  TQFile& T;
};

// Every option on values below, between, equal to (three duplicates) and above the keys;
// each answer is also the current record. Keys are kept in upper case.
TEST_F(SeekTest, EveryOptionOnValuesBelowBetweenEqualAndAbove) {
  struct Case {
    const char* Value;
    int32_t Option, Found;
    int16_t Status;
  };
  for (const Case& C :
       std::vector<Case>{{"ALPHA", adseekfirsteq, 0, 13},   {"CHARLIE", adseekfirsteq, 0, 12},
                         {"DELTA", adseekfirsteq, 2, 0},    {"delta", adseekfirsteq, 2, 0},
                         {"ZULU", adseekfirsteq, 0, 15},    {"ALPHA", adSeekLastEQ, 0, 13},
                         {"CHARLIE", adSeekLastEQ, 0, 12},  {"DELTA", adSeekLastEQ, 5, 0},
                         {"FOXTROT", adSeekLastEQ, 3, 0},   {"ZULU", adSeekLastEQ, 0, 15},
                         {"ALPHA", adSeekAfterEQ, 1, 0},    {"CHARLIE", adSeekAfterEQ, 2, 0},
                         {"DELTA", adSeekAfterEQ, 2, 0},    {"ECHO", adSeekAfterEQ, 3, 0},
                         {"ZULU", adSeekAfterEQ, 0, 15},    {"ALPHA", adSeekBeforeEQ, 0, 13},
                         {"CHARLIE", adSeekBeforeEQ, 1, 0}, {"DELTA", adSeekBeforeEQ, 2, 0},
                         {"ECHO", adSeekBeforeEQ, 5, 0},    {"ZULU", adSeekBeforeEQ, 3, 0}}) {
    EXPECT_EQ(Seek(C.Value, C.Option), C.Found) << C.Value << " " << C.Option;
    EXPECT_EQ(T.LastError(), C.Status) << C.Value << " " << C.Option;
  }
  T.SetBookMark(4);
  T.SetEngineCommand("X\\MARK");
  for (int32_t Option : {0, 3, 5, 64, -1}) {  // unknown options send nothing
    EXPECT_EQ(T.SeekKey("DELTA", Option), 0) << Option;
  }
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");
  EXPECT_EQ(T.BookMark(), 4);
}

TEST_F(SeekTest, TheSpecialSeekKeyNamesTheCurrentEntryForAfterAndBefore) {
  const std::string FileNo = std::to_string(T.DataFileNo());
  EXPECT_EQ(SpecialKeyOf(4), "1\\4\\" + FileNo + "\\DELTA   ");
  T.SetIndex(2);
  EXPECT_EQ(SpecialKeyOf(4), "2\\4\\" + FileNo + "\\DELTA   0004");
  EXPECT_EQ(SpecialKeyOf(0), "");
  T.SetIndex(1);
  const std::string Fourth = SpecialKeyOf(4);
  EXPECT_EQ(Seek(Fourth, adSeekAfter), 5);
  EXPECT_EQ(Seek(Fourth, adSeekBefore), 2);
  EXPECT_EQ(Seek(SpecialKeyOf(3), adSeekAfter), 0);  // after the last entry
  EXPECT_TRUE(T.Eof());
  EXPECT_EQ(Seek(SpecialKeyOf(1), adSeekBefore), 0);  // before the first entry
  EXPECT_TRUE(T.Bof());
}

TEST_F(SeekTest, ArrayValuesFillTheKeySegmentBySegment) {
  T.SetIndex(2);
  EXPECT_EQ(Seek(std::vector<Variant>{"DELTA", "0004"}, adseekfirsteq), 4);
  EXPECT_EQ(Seek(std::vector<Variant>{"delta", "0005", "extra"}, adseekfirsteq), 5);
  // A segment's value longer than the segment is cut to it.
  EXPECT_EQ(Seek(std::vector<Variant>{"DELTAXXXXX", "0002"}, adseekfirsteq), 0);
  // A missing segment is blank: below every DELTA entry.
  EXPECT_EQ(Seek(std::vector<Variant>{"DELTA"}, adseekfirsteq), 0);
  EXPECT_EQ(Seek(std::vector<Variant>{"DELTA"}, adSeekAfterEQ), 2);
  // A plain text is the whole key as it stands.
  EXPECT_EQ(Seek("DELTA   0005", adseekfirsteq), 5);
}

TEST_F(SeekTest, DateElementsSeekTheStoredForm) {
  T.SetIndex(3);  // order: 800615 (5), 991231 (2), A00101 (3), A50102 (1, 4)
  EXPECT_EQ(Seek(std::vector<Variant>{Date{2005, 1, 2}}, adseekfirsteq), 1);
  EXPECT_EQ(Seek(std::vector<Variant>{Date{2005, 1, 2}}, adSeekLastEQ), 4);
  EXPECT_EQ(Seek(std::vector<Variant>{Date{1999, 12, 31}}, adseekfirsteq), 2);
  EXPECT_EQ(Seek(std::vector<Variant>{Date{2000, 6, 1}}, adSeekAfterEQ), 1);
  EXPECT_EQ(Seek(std::vector<Variant>{"15/06/80"}, adseekfirsteq), 0);  // text is not a date
}

TEST_F(SeekTest, BinaryFieldKeysSeekTheStoredBytes) {
  T.SetIndex(4);
  EXPECT_EQ(Seek(std::vector<Variant>{int16_t{5}}, adseekfirsteq), 2);
  EXPECT_EQ(Seek(std::vector<Variant>{5}, adSeekLastEQ), 4);
  EXPECT_EQ(Seek(std::vector<Variant>{"300"}, adseekfirsteq), 5);
  EXPECT_EQ(Seek(std::vector<Variant>{-3.0}, adseekfirsteq), 3);
  // The special seek key carries the stored bytes and survives the trip through UTF-8.
  EXPECT_EQ(Seek(SpecialKeyOf(2), adSeekAfter), 4);
  EXPECT_EQ(Seek(SpecialKeyOf(4), adSeekBefore), 2);
}

TEST_F(SeekTest, ASeekDropsTheSavedPosition) {
  T.SetBookMark(2);
  T.State().PositionText = tqdb::GetSpecialSeekKeys(T.State());
  T.State().ResumeFromSaved = true;
  Seek("FOXTROT", adseekfirsteq);
  EXPECT_FALSE(T.State().ResumeFromSaved);
  T.MoveNext();
  EXPECT_EQ(T.EngineCommand().substr(0, 2), "N\\");
  EXPECT_TRUE(T.Eof());
}

}  // namespace
}  // namespace tqdb
