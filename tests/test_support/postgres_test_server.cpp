#include "test_support/postgres_test_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>

#include "test_support/child_process.h"

namespace clockcomm::test {
namespace {
namespace fs = std::filesystem;

std::unique_ptr<PostgresTestServer> server;
std::string start_error;

// Debian keeps each major version's programs in /usr/lib/postgresql/<version>/bin: the newest.
fs::path ServerPrograms() {
  fs::path best;
  int best_version = -1;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", ec)) {
    const int version = std::atoi(entry.path().filename().c_str());
    if (version > best_version && fs::exists(entry.path() / "bin" / "pg_ctl")) {
      best_version = version;
      best = entry.path() / "bin";
    }
  }
  if (best.empty()) {
    throw std::runtime_error(
        "no PostgreSQL server under /usr/lib/postgresql (scripts/bootstrap installs postgresql)");
  }
  return best;
}

// Runs argv to its end; throws with its output when it fails.
void Run(const std::vector<std::string>& argv) {
  Child child(argv);
  if (!child.Drain(Steady::now() + std::chrono::minutes(2))) child.Signal(SIGKILL);
  const int status = child.Wait();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::string command;
    for (const auto& a : argv) command += a + " ";
    throw std::runtime_error(command + "failed:\n" + child.Tail());
  }
}

int FreePort() {
  const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(s);
    throw std::runtime_error("no free port on 127.0.0.1");
  }
  close(s);
  return ntohs(address.sin_port);
}

class PostgresEnvironment : public ::testing::Environment {
 public:
  void TearDown() override { PostgresTestServer::Stop(); }
};
[[maybe_unused]] auto* const environment =
    ::testing::AddGlobalTestEnvironment(new PostgresEnvironment);

}  // namespace

const PostgresTestServer& PostgresTestServer::Get() {
  if (!server && start_error.empty()) {
    server.reset(new PostgresTestServer);
    try {
      server->Start();
    } catch (const std::exception& e) {
      start_error = e.what();
      Stop();
    }
  }
  if (!start_error.empty()) throw std::runtime_error("test server: " + start_error);
  return *server;
}

void PostgresTestServer::Stop() {
  if (!server) return;
  if (server->guard_pipe_ >= 0) close(server->guard_pipe_);
  int status;
  if (server->guard_pid_ > 0) waitpid(server->guard_pid_, &status, 0);
  server.reset();
}

std::string PostgresTestServer::Url(const std::string& database) const {
  return std::string("postgresql://") + kUser + ":" + password_ +
         "@127.0.0.1:" + std::to_string(port_) + "/" + database;
}

void PostgresTestServer::Start() {
  const fs::path programs = ServerPrograms();
  std::string tmpl = (fs::absolute(fs::temp_directory_path()) / "clockcomm-pg-XXXXXX").string();
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  folder_ = tmpl;
  // The server refuses to run as root: then initdb and pg_ctl run as an ordinary user who owns
  // the folder.
  std::vector<std::string> as_user;
  if (geteuid() == 0) {
    const passwd* pw = getpwnam("postgres");
    if (!pw) pw = getpwnam("nobody");
    if (!pw) throw std::runtime_error("running as root, and no user postgres or nobody");
    if (chown(folder_.c_str(), pw->pw_uid, pw->pw_gid) != 0) {
      throw std::runtime_error("cannot give " + folder_ + " to " + pw->pw_name);
    }
    as_user = {"runuser", "-u", pw->pw_name, "--"};
  }
  const auto command = [&](std::initializer_list<std::string> args) {
    std::vector<std::string> argv = as_user;
    argv.insert(argv.end(), args);
    return argv;
  };
  const std::string pg_ctl = (programs / "pg_ctl").string();

  // The guard waits for the end of its pipe (this program's Stop, or its death) and then stops the
  // server and removes the folder. Its own session keeps it out of a kill of the test's group.
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  std::vector<std::string> guard = {
      "sh", "-c",
      "cat >/dev/null; dir=$1; shift; \"$@\" stop -m fast -D \"$dir/data\"; rm -rf \"$dir\"",
      "clockcomm-pg-guard", folder_};
  for (const auto& a : command({pg_ctl})) guard.push_back(a);
  std::vector<char*> guard_argv;
  for (auto& a : guard) guard_argv.push_back(a.data());
  guard_argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[0], 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, "sh", &actions, &attributes, guard_argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(fds[0]);
  guard_pipe_ = fds[1];
  if (error != 0) throw std::runtime_error("cannot start the guard process");
  guard_pid_ = pid;

  std::random_device random;
  password_ = "pw" + std::to_string(random()) + std::to_string(random());
  const std::string password_file = folder_ + "/password";
  std::ofstream(password_file) << password_ << "\n";
  Run(command({(programs / "initdb").string(), "-D", folder_ + "/data", "-U", kUser, "--pwfile",
               password_file, "-A", "scram-sha-256", "-E", "UTF8", "--locale=C", "--no-sync"}));
  // fsync off: the tests check behaviour, not durability across a power cut. A few tries, as
  // another program may take the free port before the server does.
  for (int attempt = 1;; ++attempt) {
    port_ = FreePort();
    try {
      Run(command({pg_ctl, "-D", folder_ + "/data", "-l", folder_ + "/server.log", "-w", "-t", "60",
                   "-o",
                   "-c listen_addresses=127.0.0.1 -p " + std::to_string(port_) +
                       " -c unix_socket_directories=" + folder_ + " -c fsync=off",
                   "start"}));
      break;
    } catch (const std::runtime_error& e) {
      if (attempt == 3) {
        std::ifstream log(folder_ + "/server.log");
        throw std::runtime_error(e.what() + std::string("\nserver log:\n") +
                                 std::string(std::istreambuf_iterator<char>(log), {}));
      }
    }
  }
  PGconn* conn = PQconnectdb(Url("postgres").c_str());
  PGresult* r = PQexec(conn, (std::string("CREATE DATABASE ") + kDatabase).c_str());
  const bool created = PQresultStatus(r) == PGRES_COMMAND_OK;
  const std::string message = PQerrorMessage(conn);
  PQclear(r);
  PQfinish(conn);
  if (!created) throw std::runtime_error("cannot create the test database: " + message);
}

}  // namespace clockcomm::test
