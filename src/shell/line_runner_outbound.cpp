// The line runner's outbound mode: each location reached (a modem dials, a LAN line connects) and
// polled by the driver of its terminal's family, retried through a modem.
#include "shell/line_runner.h"

namespace clockcomm::shell {

bool LineRunner::PollLocations(const std::vector<PollRow>& locations) {
  controller_.EndCommLoop().Reset();
  if (!line_->IsOpen() && !OpenLine()) return false;
  bool all_good = true;
  for (const PollRow& location : locations) {
    if (controller_.EndCommLoop().Requested()) break;
    all_good = PollWithRetries(location) && all_good;
  }
  End();
  return all_good && !controller_.RunFailed();
}

void LineRunner::Poll(const ClockEntry& entry) {
  PollRow row;
  row.location_id = entry.LocationId();
  row.location_name = entry.Name();
  row.location_phone = entry.Address();
  row.terminal_id = entry.TerminalId();
  row.terminal_type = entry.ClockType();
  if (!line_->IsOpen() && !OpenLine()) return;
  PollWithRetries(row);
}

// Through a modem a location is tried until three attempts have failed, with the second pause
// between attempts; a direct line once.
bool LineRunner::PollWithRetries(const PollRow& location) {
  const int attempts = settings_.Modem() ? kModemAttempts : 1;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    if (controller_.EndCommLoop().Requested()) return false;
    if (attempt > 1 &&
        !controller_.Clock().Pause(settings_.second_pause, controller_.EndCommLoop())) {
      return false;
    }
    if (PollLocation(location, attempt)) return true;
  }
  if (settings_.Modem() && !controller_.EndCommLoop().Requested()) {
    controller_.Show("{0} Failed to complete transfer with {0}");
    controller_.Event("Failed to complete transfer", "Location: " + location.location_name);
  }
  return false;
}

// One attempt at one location: reach it (a modem dials, a LAN line connects), then the poll of
// the driver of its terminal's family.
bool LineRunner::PollLocation(const PollRow& location, int attempt) {
  controller_.Status(attempt > 1 ? "Attempt #" + std::to_string(attempt) : "");
  const terminal::TerminalType type = location.terminal_type.value_or(settings_.terminal_type);
  const terminal::TerminalFamily* family = terminal::FindFamily(families_, type);
  std::string refusal;
  if (family == nullptr) refusal = terminal::UnservedTypeMessage(type);
  if (!refusal.empty()) {
    controller_.Show("{0} {1}: {2}", {location.location_name, refusal});
    controller_.Event("Poll Failed", location.location_name + ": " + refusal);
    FailedCall("");
    return false;
  }
  terminal::TerminalDriver& driver = DriverFor(*family);
  UseSpeedOf(driver);
  std::string data;
  if (!ReachLocation(location, data)) return false;
  const int calls_before = driver.Calls();
  const bool ok = driver.Poll(
      {location.location_name, location.location_phone, location.terminal_id, type}, data);
  AfterCall(driver, calls_before);
  return ok;
}

// A modem dials the location and a LAN line connects to its address; a direct line is there.
bool LineRunner::ReachLocation(const PollRow& location, std::string& data) {
  if (!settings_.Modem() && !settings_.Lan()) {
    controller_.Status("Polling next entry...");
    controller_.Show("{0} Polling {1} {2}", {location.location_name, location.location_phone});
    return true;
  }
  controller_.Status(settings_.Modem() ? "Dialing next entry..." : "Connecting to next entry...");
  controller_.Show(settings_.Modem() ? "{0} Dialing {1} {2}" : "{0} Connecting {1} {2}",
                   {location.location_name, location.location_phone});
  const comm::LineEvent reached =
      line_->Reach(location.location_phone, comm::WakeSet{&controller_.EndCommLoop()});
  if (reached.kind != comm::LineEvent::Kind::kConnected) {
    controller_.Show("{0} Call failed: {1}", {reached.text.empty() ? "no answer" : reached.text});
    if (settings_.Modem()) controller_.Show("{0} Resetting modem. Please wait");
    controller_.Status("<*> Not Connected <*>");
    controller_.Event("Outbound Call Failed", location.location_name + ": " + reached.text);
    FailedCall("");
    if (settings_.Modem()) controller_.Show("{0} Modem reset completed");
    return false;
  }
  if (settings_.Modem()) {
    controller_.Show("{0} CONNECT {1}", {reached.speed});
    controller_.Status("Terminal is Connected at " + reached.speed);
  } else {
    controller_.Show("{0} Connected to {1}", {location.location_phone});
  }
  data = reached.data;
  return true;
}

}  // namespace clockcomm::shell
