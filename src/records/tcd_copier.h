// Streams records from a reader to a writer, applying the department/job assignment on the way.
#pragma once

#include <cstdint>

#include "records/tcd_record_override_service.h"
#include "records/tcd_stream.h"

namespace clockcomm::records {

class TcdCopier {
 public:
  TcdCopier(ITcdReader& reader, ITcdWriter& writer) : reader_(reader), writer_(writer) {}

  void SetOverrideService(const ITcdRecordOverrideService* service) { override_ = service; }
  void SetUpdateListener(UpdateListener* listener) { listener_ = listener; }
  int32_t CopyCount() const { return copy_count_; }

  // Copies every record the reader yields; closes neither side.
  void Copy();

 private:
  ITcdReader& reader_;
  ITcdWriter& writer_;
  const ITcdRecordOverrideService* override_ = nullptr;
  UpdateListener* listener_ = nullptr;
  int32_t copy_count_ = 0;
};

// Applies both assignment rules of the service to the record.
void ApplyOverrides(const ITcdRecordOverrideService& service, TcdRecord& record);

}  // namespace clockcomm::records
