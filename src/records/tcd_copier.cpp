#include "records/tcd_copier.h"

namespace clockcomm::records {

void ApplyOverrides(const ITcdRecordOverrideService& service, TcdRecord& record) {
  record.SetDepartment(service.OverrideDepartment(record));
  // Only a changed job goes through the setter: a long job read from a line is kept as it is.
  std::string job = service.OverrideJobNumber(record);
  if (job != record.JobNumber()) record.SetJobNumber(job);
}

void TcdCopier::Copy() {
  while (reader_.Read()) {
    TcdRecord record = *reader_.Record();
    if (override_ != nullptr) ApplyOverrides(*override_, record);
    writer_.WriteRecord(record);
    ++copy_count_;
    if (listener_ != nullptr) listener_->RecordCopied(record, copy_count_);
  }
}

}  // namespace clockcomm::records
