// A batch of punches on their way into a company database, each once: the batch's keys are
// looked up together, and the new punches' rows and keys go in bulk. On a server the table is
// locked first, so two programs writing the same company at once still put every punch in once.
#pragma once

#include <functional>
#include <vector>

#include "db/database.h"
#include "records/punch_keys.h"
#include "records/tcd_db_writer.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

class PunchBatch {
 public:
  PunchBatch(db::Database& company_db, PunchKeys& keys, TcdDbWriter& writer)
      : db_(company_db), keys_(keys), writer_(writer) {}

  // key: the punch as the terminal sent it; record: as it is to be stored.
  void Add(const PunchKey& key, TcdRecord record);
  size_t Size() const { return records_.size(); }

  struct Result {
    int written = 0;
    int already_present = 0;  // stored before, or twice in the batch
  };
  // Inside the caller's transaction: writes the punches not yet stored, tells written about each
  // row in order, and empties the batch.
  Result Write(const std::function<void(const TcdRecord&)>& written = {});

 private:
  db::Database& db_;
  PunchKeys& keys_;
  TcdDbWriter& writer_;
  std::vector<PunchKey> keys_in_;
  std::vector<TcdRecord> records_;
};

}  // namespace clockcomm::records
