// Every line of a site served by one process, each on a thread of its own: the settings' line
// (serial, modem or the LAN listener), the serial and modem lines of [Lines], and the LAN
// listener. The settings' line uses the session's controller; End on it reaches every line. A
// line that fails is logged and the others go on.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/call_session.h"
#include "shell/lan/lan_host.h"
#include "shell/lan/lan_poller.h"
#include "shell/site_lines.h"

namespace clockcomm::app {

class SiteRun {
 public:
  SiteRun(CallSession& session, shell::SiteLines lines);
  ~SiteRun();
  SiteRun(const SiteRun&) = delete;
  SiteRun& operator=(const SiteRun&) = delete;

  // Host mode on every line until End; with once, until the first call on any line has ended
  // (true when that call succeeded and its punches went in). Otherwise true when every line
  // opened and none ended on an error. scheduled: the settings' line also polls the poll list's
  // locations at their call times.
  bool Host(bool once, bool scheduled);
  // Runs job (timed polling on the settings' line, through Poller()) while the other lines
  // host; they end when it does.
  void WithOtherLinesHosting(const std::function<void()>& job);
  // The settings' line as an outbound poller: its line runner, or on the LAN a poller that calls
  // several locations at once.
  shell::OutboundPoller& Poller();
  // After timed polling: the settings' line closed, or the LAN polls under way waited for.
  void EndPolls();
  // Polls the locations on the settings' line. True when every call succeeded.
  bool PollLocations(const std::vector<shell::PollRow>& locations);
  // Between calls every line ends when idle_end is requested (a reload).
  void SetIdleEnd(const core::StopSignal* idle_end);
  // What the mode line says of an automatic start.
  void SetAutoStart(shell::AutoStartMode mode, const std::string& end_time);

  // What a console shows of each line, the settings' line first.
  struct LineInfo {
    std::string id;    // "main", "com2", "lan"
    std::string name;  // "Comm Port 2 (/dev/ttyS1)", "LAN listener (0.0.0.0:3001)"
    std::string kind;  // "serial", "modem" or "lan"
    terminal::CallSnapshot snapshot;
    std::map<std::string, terminal::InputCounters> bad_input_by_clock;
  };
  std::vector<LineInfo> LineInfos() const;

 private:
  struct Line;
  // Host mode on one line; a failure is logged and reported, never thrown to the other lines.
  bool HostLine(Line& line, bool once, bool scheduled);
  bool HostLineUnguarded(Line& line, bool once, bool scheduled);
  // Clears every line's End before a run.
  void StartRun();
  // End on every line but the settings' one.
  void EndOthers();

  CallSession& session_;
  shell::SiteLines lines_;
  std::vector<std::unique_ptr<Line>> lines_run_;  // the settings' line first
  std::unique_ptr<shell::LanPoller> lan_poller_;
  int end_listener_ = 0;
};

}  // namespace clockcomm::app
