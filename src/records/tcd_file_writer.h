// Writes TCD records as fully quoted lines ending in CR LF, to a file it opens itself or to a
// descriptor it is handed (which it never closes).
#pragma once

#include <filesystem>

#include "records/tcd_stream.h"

namespace clockcomm::records {

class TcdFileWriter : public ITcdWriter {
 public:
  // One write per record (a full disk shows at the record that did not fit), or lines gathered
  // in a buffer of whole lines, written when it is large, by Sync, by CloseWriter and (errors
  // unreported) by the destructor: one write for many records, and appenders sharing a file
  // still never split each other's lines.
  enum class Buffering { kPerRecord, kBuffered };
  static constexpr size_t kBufferLimit = 64 * 1024;

  // Opens the file: for appending when append is set, otherwise created anew (emptied).
  // Throws core::SystemError naming the file.
  TcdFileWriter(const std::filesystem::path& file_name, bool append,
                Buffering buffering = Buffering::kPerRecord);
  // Uses an already open descriptor as it is; CloseWriter leaves it open.
  explicit TcdFileWriter(int open_descriptor);
  ~TcdFileWriter() override;
  TcdFileWriter(const TcdFileWriter&) = delete;
  TcdFileWriter& operator=(const TcdFileWriter&) = delete;

  void WriteRecord(const TcdRecord& record) override;
  void CloseWriter() override;
  // Writes what is buffered, then fsync: the lines written so far survive a crash (a call is
  // acknowledged only after this).
  void Sync();
  // The descriptor, or 0 when closed.
  int Handle() const { return fd_; }

 private:
  int fd_ = 0;
  bool owned_ = false;
  std::string name_;
  size_t buffer_limit_ = 0;  // 0: each record written at once
  std::string pending_;      // whole lines not yet written

  void WritePending();
};

}  // namespace clockcomm::records
