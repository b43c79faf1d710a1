#include "t4/host/t4_clock_list.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/errors.h"
#include "core/text.h"
#include "t4/t4_connection.h"

namespace clockcomm::t4 {
namespace {

constexpr const char* kSelectClocks =
    "SELECT ClockID, ClockName, Address, DeviceNumber, Transport, CommKey FROM T4Clocks";

T4ClockEntry EntryOf(const db::Recordset& rs) {
  T4ClockEntry e;
  e.id = rs.Field("ClockID").AsInt();
  e.name = rs.Field("ClockName").AsText();
  e.address = rs.Field("Address").AsText();
  e.device_number = static_cast<int>(rs.Field("DeviceNumber").AsInt());
  e.transport = rs.Field("Transport").AsText();
  e.comm_key = rs.Field("CommKey").AsInt();
  return e;
}

void Require(bool ok, const std::string& message, const char* param) {
  if (!ok) throw core::ArgumentException(message, param);
}

}  // namespace

std::vector<T4ClockEntry> T4ClockList::ReadClocks() {
  std::vector<T4ClockEntry> clocks;
  for (auto rs = db_.Query(std::string(kSelectClocks) + " ORDER BY ClockID"); !rs.Eof();
       rs.MoveNext()) {
    clocks.push_back(EntryOf(rs));
  }
  return clocks;
}

T4ClockEntry T4ClockList::Resolve(const std::string& id_or_name) {
  std::vector<T4ClockEntry> named;
  for (const auto& entry : ReadClocks()) {
    if (std::to_string(entry.id) == id_or_name) return entry;
    if (core::EqualsIgnoreCase(entry.name, id_or_name)) named.push_back(entry);
  }
  if (named.empty()) {
    throw core::ItemNotFoundException("The T4 clock list has no clock \"" + id_or_name + "\".");
  }
  Require(named.size() == 1,
          std::to_string(named.size()) + " T4 clocks are named \"" + id_or_name +
              "\": give the clock's ID (t4 clocks list).",
          "clock");
  return named.front();
}

int64_t T4ClockList::Add(const T4ClockEntry& e) {
  Require(!core::Trim(e.name).empty(), "The clock name cannot be empty.", "name");
  Require(!core::HasControlCharacter(e.name) && !core::HasControlCharacter(e.address),
          "A clock's name and address cannot hold control characters.", "name");
  Require(!core::Trim(e.address).empty(), "The clock's address cannot be empty.", "address");
  // One terminal, one client: a second clock at the same end point would fight the first.
  const comm::EndPoint end = T4EndPoint(e.address);
  for (const auto& other : ReadClocks()) {
    const comm::EndPoint at = T4EndPoint(other.address);
    Require(!(core::EqualsIgnoreCase(at.host, end.host) && at.port == end.port),
            "Clock " + std::to_string(other.id) + " \"" + other.name + "\" is already at " +
                other.address + ".",
            "address");
  }
  Require(e.device_number >= 1 && e.device_number <= 255,
          "The machine number " + std::to_string(e.device_number) + " is outside 1..255.",
          "device_number");
  Require(e.transport == "tcp" || e.transport == "udp",
          "The transport \"" + e.transport + "\" is neither tcp nor udp.", "transport");
  Require(e.comm_key >= 0 && e.comm_key <= 0xFFFFFFFFll,
          "The communication key " + std::to_string(e.comm_key) + " is outside 0..4294967295.",
          "comm_key");
  db_.Execute(
      "INSERT INTO T4Clocks (ClockName, Address, DeviceNumber, Transport, CommKey) "
      "VALUES (?, ?, ?, ?, ?)",
      {e.name, e.address, db::Value(static_cast<int64_t>(e.device_number)), e.transport,
       db::Value(e.comm_key)});
  return db_.LastInsertId();
}

void T4ClockList::Remove(int64_t clock_id) {
  db::Transaction transaction(db_);
  db_.Execute("DELETE FROM ClockTasks WHERE ClockID = ?", {db::Value(clock_id)});
  db_.Execute("DELETE FROM T4Clocks WHERE ClockID = ?", {db::Value(clock_id)});
  transaction.Commit();
}

std::vector<ClockTask> T4ClockList::ReadTasks(int64_t clock_id) {
  std::vector<ClockTask> tasks;
  for (auto rs = db_.Query(
           "SELECT TaskID, ClockID, Task, UserID FROM ClockTasks WHERE ClockID = ? ORDER BY TaskID",
           {db::Value(clock_id)});
       !rs.Eof(); rs.MoveNext()) {
    tasks.push_back({rs.Field("TaskID").AsInt(), rs.Field("ClockID").AsInt(),
                     rs.Field("Task").AsText(), rs.Field("UserID").AsText()});
  }
  return tasks;
}

int64_t T4ClockList::AddTask(const ClockTask& task) {
  static constexpr std::array<std::string_view, 4> kTasks = {kLoadAllUsers, kAddUser, kRemoveUser,
                                                             kReloadUser};
  Require(std::find(kTasks.begin(), kTasks.end(), task.task) != kTasks.end(),
          "\"" + task.task +
              "\" is not a clock task (Load All Users, Add User, Remove User, Reload User).",
          "task");
  Require(task.task == kLoadAllUsers || !core::Trim(task.user_id).empty(),
          "The task \"" + task.task + "\" needs the user's enrolment number.", "user_id");
  Require(!core::HasControlCharacter(task.user_id),
          "An enrolment number cannot hold control characters.", "user_id");
  db_.Execute("INSERT INTO ClockTasks (ClockID, Task, UserID) VALUES (?, ?, ?)",
              {db::Value(task.clock_id), task.task, task.user_id});
  return db_.LastInsertId();
}

void T4ClockList::RemoveTask(int64_t task_id) {
  db_.Execute("DELETE FROM ClockTasks WHERE TaskID = ?", {db::Value(task_id)});
}

}  // namespace clockcomm::t4
