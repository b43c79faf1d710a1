// Writes TCD records as fully quoted lines ending in CR LF, to a file it opens itself or to a
// descriptor it is handed (which it never closes).
#pragma once

#include <filesystem>

#include "records/tcd_stream.h"

namespace clockcomm::records {

class TcdFileWriter : public ITcdWriter {
 public:
  // Opens the file: for appending when append is set, otherwise created anew (emptied).
  // Throws core::SystemError naming the file.
  TcdFileWriter(const std::filesystem::path& file_name, bool append);
  // Uses an already open descriptor as it is; CloseWriter leaves it open.
  explicit TcdFileWriter(int open_descriptor);
  ~TcdFileWriter() override;
  TcdFileWriter(const TcdFileWriter&) = delete;
  TcdFileWriter& operator=(const TcdFileWriter&) = delete;

  // One write per record, so nothing is held back in a buffer of ours.
  void WriteRecord(const TcdRecord& record) override;
  void CloseWriter() override;
  // fsync: the lines written so far survive a crash (a call is acknowledged only after this).
  void Sync();
  // The descriptor, or 0 when closed.
  int Handle() const { return fd_; }

 private:
  int fd_ = 0;
  bool owned_ = false;
  std::string name_;
};

}  // namespace clockcomm::records
