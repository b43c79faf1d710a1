// The T4 clock list (table T4Clocks of the product database): one row per fingerprint terminal the
// T4 host keeps connected, and the per-clock user and template tasks waiting for it (table
// ClockTasks). The host reads both on every cycle; the `t4 clocks` and `t4 tasks` commands edit
// them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "db/database.h"

namespace clockcomm::t4 {

struct T4ClockEntry {
  int64_t id = 0;
  // The clock name: its company (by the registry's clock name) and its assignments. Several
  // terminals of one company may share it; the id tells them apart.
  std::string name;
  std::string address;            // "host" or "host:port" (port 4370 when none)
  int device_number = 1;          // the terminal's machine number
  std::string transport = "tcp";  // "tcp" or "udp"
  int64_t comm_key = 0;           // the terminal's communication key (0: none)

  bool operator==(const T4ClockEntry&) const = default;
};

// The task names of ClockTasks.
inline constexpr const char* kLoadAllUsers = "Load All Users";
inline constexpr const char* kAddUser = "Add User";
inline constexpr const char* kRemoveUser = "Remove User";
inline constexpr const char* kReloadUser = "Reload User";

struct ClockTask {
  int64_t task_id = 0;
  int64_t clock_id = 0;
  std::string task;     // one of the four names above
  std::string user_id;  // the enrolment number the task is about (empty for Load All Users)
};

class T4ClockList {
 public:
  explicit T4ClockList(db::Database& db) : db_(db) {}

  // Every clock, ordered by id.
  std::vector<T4ClockEntry> ReadClocks();
  // The clock a command names by its id or its name: ItemNotFoundException when none is, and
  // ArgumentException when the name is shared (the id must be given then).
  T4ClockEntry Resolve(const std::string& id_or_name);
  // Adds a clock and returns its id. Throws ArgumentException naming the field for an empty
  // name, a control character, an address without a host, with a bad port or already listed, a
  // machine number outside 1..255, or a transport other than tcp and udp.
  int64_t Add(const T4ClockEntry& entry);
  // Removes the clock and its waiting tasks.
  void Remove(int64_t clock_id);

  // Tasks waiting for a clock, oldest first.
  std::vector<ClockTask> ReadTasks(int64_t clock_id);
  // Throws ArgumentException for an unknown task name or a user task without a user.
  int64_t AddTask(const ClockTask& task);
  void RemoveTask(int64_t task_id);

 private:
  db::Database& db_;
};

}  // namespace clockcomm::t4
