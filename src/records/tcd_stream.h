// The two stream interfaces over TCD records, and the notice a copy or transfer gives per record.
#pragma once

#include <cstdint>
#include <optional>

#include "records/tcd_record.h"

namespace clockcomm::records {

class ITcdReader {
 public:
  virtual ~ITcdReader() = default;
  // Reads the next record; false at the end (Record() is then none).
  virtual bool Read() = 0;
  virtual const std::optional<TcdRecord>& Record() const = 0;
  virtual void CloseReader() = 0;
};

class ITcdWriter {
 public:
  virtual ~ITcdWriter() = default;
  virtual void WriteRecord(const TcdRecord& record) = 0;
  virtual void CloseWriter() = 0;
};

// Progress display: one notice per record handled, with the count so far.
class UpdateListener {
 public:
  virtual ~UpdateListener() = default;
  virtual void RecordCopied(const TcdRecord& record, int32_t count) = 0;
};

}  // namespace clockcomm::records
