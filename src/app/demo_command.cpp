// demo: the main job from nothing, on the embedded default. A program folder with a company, its
// employees and a poll list; a simulated terminal on a direct line calls in (host mode), a second
// one behind a simulated modem is polled, an ATS terminal is polled over TCP, and the T4 host
// serves two fingerprint terminals on the network; the punches end in the company's database.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/families.h"
#include "app/t4_site.h"
#include "comm/pty_pair.h"
#include "comm/tcp_connection.h"
#include "core/errors.h"
#include "db/location.h"
#include "db/open.h"
#include "records/company_registration.h"
#include "records/employee_table.h"
#include "records/parameter_override.h"
#include "records/validation_codes.h"
#include "shell/install_information.h"
#include "shell/lan/lan_host.h"
#include "shell/program_folder.h"
#include "shell/schedule/poll_list.h"
#include "sim/ats_terminal.h"
#include "sim/hayes_modem.h"
#include "sim/t4_terminal_sim.h"
#include "sim/zon_swarm.h"
#include "sim/zon_terminal.h"
#include "t4/host/t4_clock_list.h"
#include "t4/net/t4_time_code.h"

namespace clockcomm::app {
namespace fs = std::filesystem;
namespace {

constexpr const char* kMarker = ".clockcomm-demo";
constexpr const char* kCompanyDirectory = "demo";
constexpr const char* kPhone = "5551234";

// Where the demo's databases go: the SQLite files of the demo folder, or with --database schemas
// "demo_site" (event log, registry) and "demo_company" of a PostgreSQL database.
struct DemoDatabases {
  std::string site;
  std::string company;
};

DemoDatabases OnServer(const std::string& url) {
  if (url.empty()) return {};
  if (!db::IsServerLocation(url)) {
    throw core::ArgumentException("--database takes a postgresql:// URL, not \"" + url + "\"",
                                  "database");
  }
  // Made anew on every run, like the folder; nothing else of the database is touched.
  auto db = db::Open(url);
  for (const char* schema : {"demo_site", "demo_company"}) {
    db->Execute(std::string("DROP SCHEMA IF EXISTS ") + schema + " CASCADE");
    db->Execute(std::string("CREATE SCHEMA ") + schema);
  }
  return {db::LocationInSchema(url, "demo_site"), db::LocationInSchema(url, "demo_company")};
}

// A demo folder is made anew on every run; a folder that is not one of ours is never touched.
void PrepareHome(const fs::path& home, const DemoDatabases& databases) {
  if (fs::exists(home) && !fs::is_empty(home)) {
    if (!fs::exists(home / kMarker)) {
      throw core::InvalidOperationException(
          home.string() + " exists and is not a demo folder; choose another with --home");
    }
    fs::remove_all(home);
  }
  if (!databases.site.empty()) {  // before init, which makes the event log and the registry there
    fs::create_directories(home);
    shell::InstallInformation install(home);
    install.SetValue("Databases", "EventLog", databases.site);
    install.SetValue("Databases", "Registry", databases.site);
    install.Save();
  }
  shell::InitializeProgramFolder(home, true);
  std::ofstream(home / kMarker) << "Made by `clockcomm demo`; removed by the next run.\n";
  // The home department and default job of an employee go to the punches that lack them.
  std::ofstream(home / records::kSettingsOverrideFile)
      << "; written by the demo\nassignhomedept = yes\nassigndefaultjob = yes\n";
}

void AddCompany(const shell::MyPaths& paths, const fs::path& database, const core::Date& today) {
  records::NewCompany company;
  company.name = "Demo Company";
  company.clock_name = "DEMODATA";
  company.directory = kCompanyDirectory;
  company.pay_period_type = "weekly";
  company.start = today.AddDays(-((today.DayOfWeek() + 6) % 7));  // this week's Monday
  records::RegisterCompany({paths.CompanyRegistryDatabase(), paths.DataDirectory(),
                            paths.CompanyDirectory(kCompanyDirectory), database},
                           company);
  auto db = db::Open(database);
  // Through the same code as `employee add`, `department add` and `job add`.
  records::EmployeeTable employees(*db);
  for (const records::Employee& e : {records::Employee{12, "Ada Lovelace", 7, "J1"},
                                     records::Employee{13, "Charles Babbage", 8, "J2"},
                                     records::Employee{14, "Grace Hopper", 7, ""}}) {
    employees.Add(e);
  }
  records::ValidationCodes codes(*db);
  codes.AddDepartment(7, "Assembly");
  codes.AddDepartment(8, "Paint");
  codes.AddJob("J1", "Frames");
  codes.AddJob("J2", "Wheels");
}

// A terminal's punches of today: each employee in, out to lunch, back, and out.
std::vector<std::string> TodaysPunches(const core::Date& today, int first_sequence,
                                       const std::vector<int>& badges) {
  const std::string date = today.Format("yymmdd");
  const char* types[] = {"I", "LO", "LI", "O"};
  const char* times[] = {"0800", "1200", "1230", "1630"};
  std::vector<std::string> punches;
  int sequence = first_sequence;
  for (int step = 0; step < 4; ++step) {
    for (int badge : badges) {
      punches.push_back(std::to_string(sequence++) + "," + std::to_string(badge) + ",,,,," +
                        types[step] + "," + date + "," + times[step] + ",,,,1");
    }
  }
  return punches;
}

sim::TerminalConfig Terminal(int number, const std::string& terminal_id) {
  sim::TerminalConfig config;
  config.clock_name = "DEMODATA";
  config.clock_number = number;
  config.terminal_id = terminal_id;
  return config;
}

// One hosted call on a direct line: the terminal calls in, the host loop takes its batch.
bool HostedCall(CallSession& session, const core::Date& today) {
  std::cout << "\n== Host mode on a direct line: terminal 101 calls in ==\n";
  auto pty = comm::PtyPair::Open();
  auto far_end = pty.TakeMaster();
  sim::ZonTerminal terminal(Terminal(101, ""), TodaysPunches(today, 1, {12, 13}));
  auto settings = session.LoopSettings(pty.SlavePath());
  settings.connection_type = comm::ConnectionType::kSerial;
  auto runner = session.MakeRunner(settings);
  // The terminal's ENQ waits in the line until the loop has opened its port.
  std::thread caller([&] { terminal.CallIn(*far_end); });
  const bool ok = runner->Host(true);
  caller.join();
  std::cout << "Terminal 101: " << sim::ToString(terminal.LastOutcome()) << ", "
            << terminal.PendingPunches().size() << " punch(es) still in the terminal\n";
  return ok;
}

// One call of a Zon/Tranz terminal on the network: it connects to the LAN listener and holds the
// direct line's conversation. Returns the punches it delivered (none when the call failed).
int NetworkCall(CallSession& session, const core::Date& today) {
  std::cout << "\n== Host mode on the network: terminal 103 calls the LAN listener ==\n";
  auto settings = session.LoopSettings("");
  settings.connection_type = comm::ConnectionType::kLan;
  shell::LanSettings lan;
  lan.listen = {"127.0.0.1", 0};
  shell::LanHost host(settings, lan, Families(), session.Controller(), session.Services(),
                      session.Logs(), session.Screen());
  if (!host.Listen()) return 0;
  const auto punches = TodaysPunches(today, 201, {12, 13});
  sim::ZonTerminal terminal(Terminal(103, ""), punches);
  std::thread caller([&] { sim::CallInOverTcp(terminal, {"127.0.0.1", host.Port()}, nullptr); });
  const bool ok = host.Host(true);
  caller.join();
  std::cout << "Terminal 103: " << sim::ToString(terminal.LastOutcome()) << ", "
            << terminal.PendingPunches().size() << " punch(es) still in the terminal\n";
  return ok ? static_cast<int>(punches.size()) : 0;
}

// One outbound poll through a modem: the loop dials the poll list's location.
bool PolledCall(CallSession& session, const core::Date& today) {
  std::cout << "\n== Outbound poll through a modem: dialling the Warehouse ==\n";
  auto pty = comm::PtyPair::Open();
  core::StopSignal modem_stop;
  sim::ZonTerminal terminal(Terminal(102, "7"), TodaysPunches(today, 101, {14}));
  sim::HayesModem modem(pty.TakeMaster(), sim::ModemOptions{}, modem_stop);
  modem.AddToPhoneBook(kPhone, terminal);
  std::thread modem_thread([&] { modem.Run(); });
  auto settings = session.LoopSettings(pty.SlavePath());
  settings.connection_type = comm::ConnectionType::kModem;
  auto runner = session.MakeRunner(settings);
  const auto rows = shell::PollList(session.ProductDatabase()).ReadPollRows();
  const bool ok = runner->PollLocations(rows);
  modem_stop.Request();
  modem_thread.join();
  std::cout << "Terminal 102: " << sim::ToString(terminal.LastOutcome()) << ", "
            << terminal.PendingPunches().size() << " punch(es) still in the terminal\n";
  return ok;
}

// One poll of an ATS E-Series terminal on the network: its location is named after the company's
// clock, its terminal id is the terminal's address.
bool AtsPoll(CallSession& session, const core::Date& today) {
  std::cout << "\n== Poll of an ATS E-Series terminal over TCP ==\n";
  core::StopSignal stop;
  sim::ATSTerminalConfig config;
  config.address = 3;
  sim::ATSTerminal terminal(config, sim::GenerateATSPunches(ats::Series::kESeries, 4, today, 3),
                            &stop);
  comm::TcpListener port("127.0.0.1", 0);
  std::thread server([&] { terminal.ServeTcp(port); });
  shell::PollRow dock;
  dock.location_name = "DEMODATA";
  dock.location_phone = "127.0.0.1:" + std::to_string(port.Port());
  dock.terminal_id = "3";
  dock.terminal_type = terminal::TerminalType::kAtsESeries;
  dock.select_to_dial = false;  // polled here by hand, not by the modem poll above
  dock.location_id = shell::PollList(session.ProductDatabase()).Add(dock);
  auto settings = session.LoopSettings("");
  settings.connection_type = comm::ConnectionType::kLan;
  settings.terminal_type = terminal::TerminalType::kAtsESeries;
  auto runner = session.MakeRunner(settings);
  const bool ok = runner->PollLocations({dock});
  stop.Request();
  server.join();
  std::cout << "ATS terminal 3: " << terminal.PendingPunches().size()
            << " punch(es) still in the terminal\n";
  return ok;
}

t4::net::T4Record T4Punch(int badge, const core::Date& day, int hour, int minute, int state) {
  t4::net::T4Record record;
  record.user_id = std::to_string(badge);
  record.verify = 1;  // a fingerprint
  record.state = static_cast<uint8_t>(state);
  record.time =
      t4::net::EncodeTimeCode(core::DateTime(day, *core::TimeOfDay::FromHms(hour, minute, 0)));
  return record;
}

// The T4 host over two fingerprint terminals on the loopback: the Lobby holds the morning's
// punches in its log and is read by bulk download; the Dock pushes each punch the moment it is
// made. Returns the punches stored.
int64_t T4Terminals(CallSession& session, const core::Date& today) {
  std::cout << "\n== T4 host: two fingerprint terminals on the network ==\n";
  core::SystemClock clock;
  sim::T4TerminalSim lobby(sim::T4SimConfig{}, clock);
  sim::T4TerminalSim dock(sim::T4SimConfig{}, clock);
  for (int badge : {12, 13}) lobby.Punch(T4Punch(badge, today, 7, 55 + badge % 2, 0));
  lobby.Listen("127.0.0.1", 0);
  dock.Listen("127.0.0.1", 0);
  t4::T4ClockList list(session.ProductDatabase());
  for (const auto* terminal : {&lobby, &dock}) {
    list.Add({0, "DEMODATA", "127.0.0.1:" + std::to_string(terminal->Port()), 1});
  }
  T4Site site(session, comm::ConnectionType::kLan);
  core::StopSignal end;
  std::thread host([&] { site.Host(end); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  bool stored = site.WaitForPunchesStored(2, deadline);
  // Made while the host listens: each one is pushed, stored, and still in the Dock's log until
  // the next count check clears it.
  for (int badge : {12, 13, 14}) {
    dock.Punch(T4Punch(badge, today, 12, badge, 1));
    stored = stored && site.WaitForPunchesStored(2 + badge - 11, deadline);
  }
  end.Request();
  host.join();
  std::cout << "T4 Lobby: " << lobby.RecordCount()
            << " record(s) left in its log; T4 Dock: " << dock.RecordCount()
            << " record(s) in its log, sent in real time\n";
  if (!stored) std::cout << "T4: not every punch was stored within 20 s\n";
  return site.PunchesStored();
}

int64_t Rows(const fs::path& company_database) {
  return db::Open(company_database)
      ->Query("SELECT COUNT(*) FROM [Clock Data Table]")
      .Field(0)
      .AsInt();
}

// rows_from_calls: the rows before the T4 host ran, one per punch of the calls. A T4 punch makes
// one row, or two where it ends one period and begins the next (a lunch out, a switch).
void PrintSummary(CallSession& session, const fs::path& home, const fs::path& company_database,
                  int64_t rows_from_calls, int64_t t4_punches, int network_punches) {
  const auto& paths = session.Paths();
  auto company = db::Open(company_database);
  const int64_t rows = company->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  const auto snapshot = session.Controller().Snapshot();
  std::cout << "\n== Summary ==\n"
            << "Calls: " << snapshot.calls << " (" << snapshot.good_calls
            << " succeeded), and one over the network\n"
            << "Punches received: " << snapshot.punches + network_punches << " in calls, "
            << t4_punches << " from T4 terminals\n"
            << "Rows in [Clock Data Table]: " << rows << "\n";
  auto sample = company->Query(
      "SELECT [Card ID], [Punch Type], Department, JobNumber, [Date In], [Time In], [Date Out], "
      "[Time Out] FROM [Clock Data Table] ORDER BY ID LIMIT 4");
  for (; !sample.Eof(); sample.MoveNext()) {
    std::cout << "  card " << sample.Field(0).AsText() << " " << sample.Field(1).AsText()
              << " dept " << sample.Field(2).AsText() << " job " << sample.Field(3).AsText()
              << " in " << sample.Field(4).AsText() << " " << sample.Field(5).AsText() << " out "
              << sample.Field(6).AsText() << " " << sample.Field(7).AsText() << "\n";
  }
  std::cout << "Program folder: " << home.string() << "\n"
            << "Call files and archives: " << paths.DataDirectory().string() << "\n"
            << "Company database: " << db::ShownLocation(company_database.native()) << "\n"
            << "Event log: " << db::ShownLocation(paths.EventLogDatabase().native())
            << " (clockcomm --home " << home.string() << " log show --from "
            << session.Clock().Now().GetDate().ToString() << " --to "
            << session.Clock().Now().GetDate().ToString() << ")\n"
            << "Text logs: " << paths.DebugLogDirectory().string() << "\n";
  if (rows_from_calls != snapshot.punches + network_punches ||
      rows < rows_from_calls + t4_punches) {
    throw CLI::RuntimeError(1);
  }
}

void RunDemo(const GlobalOptions& options, const std::string& database_url) {
  const fs::path home =
      options.home.empty() ? fs::current_path() / "demo-home" : fs::absolute(options.home);
  core::SystemClock clock;
  const core::Date today = clock.Now().GetDate();
  const DemoDatabases databases = OnServer(database_url);
  PrepareHome(home, databases);
  fs::path company_database = databases.company;
  {
    const auto config = shell::MyStatic::Load(home);
    if (company_database.empty())
      company_database = config->Paths().CompanyDatabase(kCompanyDirectory);
    AddCompany(config->Paths(), company_database, today);
  }
  CallSession session(home, std::cout, clock);
  shell::PollRow warehouse;
  warehouse.location_name = "Warehouse";
  warehouse.location_phone = kPhone;
  warehouse.terminal_id = "7";
  warehouse.dial_time = core::TimeOfDay::FromHms(6, 0);
  shell::PollList(session.ProductDatabase()).Add(warehouse);
  std::cout << "Demo program folder " << home.string()
            << ": company \"Demo Company\" (clock DEMODATA), 3 employees, 1 poll-list location\n";

  const bool hosted = HostedCall(session, today);
  const int network_punches = NetworkCall(session, today);
  const bool polled = PolledCall(session, today);
  const bool ats_polled = AtsPoll(session, today);
  const int64_t rows_from_calls = Rows(company_database);
  const int64_t t4_punches = T4Terminals(session, today);
  PrintSummary(session, home, company_database, rows_from_calls, t4_punches, network_punches);
  if (!hosted || network_punches == 0 || !polled || !ats_polled || t4_punches != 5) {
    throw CLI::RuntimeError(1);
  }
}

}  // namespace

void RegisterDemoCommand(CLI::App& app, const GlobalOptions& options) {
  CLI::App* demo = app.add_subcommand(
      "demo",
      "Run the main job on simulated terminals: a demo folder (default ./demo-home), one hosted "
      "call on a direct line, one over the network, one poll through a modem, one ATS poll over "
      "TCP and the T4 host "
      "over two network terminals, punches into the company database");
  auto database = std::make_shared<std::string>();
  demo->add_option("--database", *database,
                   "Put the event log, the registry and the company database on this PostgreSQL "
                   "database (postgresql://...), in schemas demo_site and demo_company made anew");
  demo->callback([&options, database] { RunDemo(options, *database); });
}

}  // namespace clockcomm::app
