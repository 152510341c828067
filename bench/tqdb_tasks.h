// The benchmark tasks on TQDB, through the public interface only (TQFile), plus the
// platform layer's system-call counters.
#pragma once

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_tasks.h"
#include "platform/file_pool.h"
#include "table/TQFile.h"

namespace bench {

// Adds one benchmark row as a new record (AddNew, every field, Update).
inline void AddRecord(tqdb::TQFile& Table, const Row& R) {
  Table.AddNew();
  Table.SetFields("CODIGO", R.Codigo);
  Table.SetFields("NOMBRE", R.Nombre);
  Table.SetFields("CIUDAD", R.Ciudad);
  Table.SetFields("FECHA", R.Fecha);
  Table.SetFields("CANTIDAD", R.Cantidad);
  Table.SetFields("NUMERO", R.Numero);
  Table.SetFields("PRECIO", R.Precio);
  Table.SetFields("IMPORTE", R.Importe);
  Table.SetFields("SALDO", R.Saldo);
  Table.SetFields("NOTAS", R.Notas);
  Table.Update();
}

class TqdbTasks {
 public:
  TqdbTasks(std::string Directory, int64_t N) : dir_(std::move(Directory)), n_(N) {
    WriteDictionary(dir_);
    for (const char* Ext : {".tqd", ".tqc", ".tqw", ".tqy"}) {
      std::filesystem::remove(dir_ + std::string(kTableName) + std::string(kSuffix) + Ext);
    }
    Open();
  }

  // Runs one task; the caller times it and counts the system calls around it.
  Measure Run(Task T) {
    Measure M;
    switch (T) {
      case kLoad:
        Load(M);
        break;
      case kScanKey1:
        Scan(M, 1, "CODIGO", "IMPORTE", "FECHA");
        break;
      case kScanKey2:
        Scan(M, 2, "NOMBRE", "CANTIDAD", "CIUDAD");
        break;
      case kSeek:
        Seek(M);
        break;
      case kRangeFilter:
        Walk(M, "CODIGO >= " + CodeText(TopCodeStart(n_, 1)));
        break;
      case kPlainFilter:
        Walk(M, "CIUDAD = MADRID");
        break;
      case kSort:
        SortView(M);
        break;
      case kSum:
        SumView(M);
        break;
      case kUpdate:
        UpdateRandom(M);
        break;
      case kDelete:
        DeleteTenth(M);
        break;
      case kReIndex:
        ReIndexTable(M);
        break;
      case kRebuild:
        RebuildTable(M);
        break;
      default:
        break;
    }
    return M;
  }

 private:
  void Open() {
    if (table_.OpenFile(dir_ + std::string(kTableName) + std::string(kSuffix), dir_) != 0) {
      throw std::runtime_error("OpenFile failed: " + std::to_string(table_.LastError()));
    }
  }

  // In a bulk load, as SQLite's side is one transaction.
  void Load(Measure& M) {
    tqdb::BulkLoad Scope(table_);
    for (int64_t I = 0; I < n_; ++I) {
      const Row R = MakeRow(I, n_);
      AddRecord(table_, R);
    }
    Scope.End();
    M.Ops = n_;
    M.Check = table_.RecordCount();
  }

  void Scan(Measure& M, int16_t Key, const char* A, const char* B, const char* C) {
    table_.SetIndex(Key);
    int64_t Count = 0;
    size_t Bytes = 0;
    for (table_.MoveFirst(); !table_.Eof(); table_.MoveNext()) {
      Bytes += table_.Fields(A).ToString().size();
      Bytes += static_cast<size_t>(table_.Fields(B).ToDouble() != 0);
      Bytes += table_.Fields(C).ToString().size();
      ++Count;
    }
    M.Ops = Count;
    M.Check = static_cast<double>(Count);
    sink_ += Bytes;
  }

  void Seek(Measure& M) {
    table_.SetIndex(1);
    int64_t Found = 0;
    double Total = 0;
    for (int64_t Code : SeekCodes(n_)) {
      if (table_.SeekKey(CodeText(Code)) > 0) {
        sink_ += table_.Fields("NOMBRE").ToString().size();
        Total += table_.Fields("IMPORTE").ToDouble();
        ++Found;
      }
    }
    M.Ops = kSeeks;
    M.Check = static_cast<double>(Found);
    sink_ += static_cast<size_t>(Total != 0);
  }

  // Filters, then walks the view reading three fields of every record.
  void Walk(Measure& M, const std::string& Condition) {
    table_.Filter(Condition);
    int64_t Count = 0;
    for (table_.MoveFirst(); !table_.Eof(); table_.MoveNext()) {
      sink_ += table_.Fields("CODIGO").ToString().size();
      sink_ += table_.Fields("NOMBRE").ToString().size();
      sink_ += static_cast<size_t>(table_.Fields("IMPORTE").ToDouble() != 0);
      ++Count;
    }
    table_.Filter("");
    M.Ops = Count;
    M.Check = static_cast<double>(Count);
  }

  void SortView(Measure& M) {
    table_.Filter("CODIGO >= " + CodeText(TopCodeStart(n_, 10)));
    table_.Sort("CIUDAD");
    M.Ops = table_.RecordCount();
    M.Check = static_cast<double>(M.Ops);
  }

  // Runs on the sorted view left by SortView, then drops it.
  void SumView(Measure& M) {
    M.Ops = table_.RecordCount();
    M.Check = table_.Sum("IMPORTE");
    table_.Filter("");
  }

  void UpdateRandom(Measure& M) {
    table_.SetIndex(1);
    const std::vector<int64_t> Codes = UpdateCodes(n_);
    int64_t Changed = 0;
    for (size_t Q = 0; Q < Codes.size(); ++Q) {
      if (table_.SeekKey(CodeText(Codes[Q])) <= 0) continue;
      table_.Edit();
      table_.SetFields("IMPORTE", UpdatedAmount(static_cast<int64_t>(Q)));
      table_.SetFields("NOMBRE", UpdatedName(static_cast<int64_t>(Q), n_));
      table_.Update();
      ++Changed;
    }
    M.Ops = static_cast<int64_t>(Codes.size());
    M.Check = static_cast<double>(Changed);
  }

  void DeleteTenth(Measure& M) {
    table_.SetIndex(1);
    const std::vector<int64_t> Codes = DeleteCodes(n_);
    int64_t Deleted = 0;
    for (int64_t Code : Codes) {
      const int32_t Record = table_.SeekKey(CodeText(Code));
      if (Record <= 0) continue;
      table_.Delete(Record);
      ++Deleted;
    }
    M.Ops = static_cast<int64_t>(Codes.size());
    M.Check = static_cast<double>(Deleted);
  }

  // Counts the records a walk of key 1 visits.
  int64_t LiveRecords() {
    table_.SetIndex(1);
    int64_t Count = 0;
    for (table_.MoveFirst(); !table_.Eof(); table_.MoveNext()) ++Count;
    return Count;
  }

  void ReIndexTable(Measure& M) {
    table_.ReIndex();
    M.Ops = n_;
  }

  // Rebuild leaves every file of the table closed; After reopens it.
  void RebuildTable(Measure& M) {
    table_.Rebuild();
    M.Ops = n_;
  }

 public:
  // Untimed work after a task: reopening after Rebuild, and the check values of the
  // maintenance tasks (the records a walk of key 1 visits).
  void After(Task T, Measure& M) {
    if (T == kRebuild) Open();
    if (T == kReIndex || T == kRebuild) M.Check = static_cast<double>(LiveRecords());
  }
  size_t Sink() const { return sink_; }

 private:
  std::string dir_;
  int64_t n_;
  tqdb::TQFile table_;
  size_t sink_ = 0;
};

}  // namespace bench
