// A pseudo-terminal pair: the slave device path is a serial line that SerialLine opens; the master
// is the far end, where a simulated terminal or modem sits. Used by the simulators, the demo and
// the tests.
#pragma once

#include <memory>
#include <string>

#include "comm/fd_connection.h"

namespace clockcomm::comm {

class PtyPair {
 public:
  // Opens a master with posix_openpt, unlocks it and puts the slave in raw mode. When
  // hold_slave_open is true the pair keeps one slave descriptor open itself, so that the master
  // does not see a hang-up between the times a SerialLine opens and closes the slave.
  static PtyPair Open(bool hold_slave_open = true);

  PtyPair(PtyPair&& other) noexcept;
  PtyPair& operator=(PtyPair&& other) noexcept;
  ~PtyPair();

  const std::string& SlavePath() const { return slave_path_; }
  // The master descriptor (still owned by the pair); -1 after TakeMaster.
  int MasterFd() const { return master_fd_; }
  // Hands the master over as a connection; the pair no longer owns it.
  std::unique_ptr<FdConnection> TakeMaster();
  // Closes the slave descriptor the pair holds (if any); the master then sees a hang-up once no
  // one else has the slave open.
  void ReleaseSlave();

 private:
  PtyPair(int master_fd, int slave_fd, std::string slave_path)
      : master_fd_(master_fd), slave_fd_(slave_fd), slave_path_(std::move(slave_path)) {}

  int master_fd_ = -1;
  int slave_fd_ = -1;
  std::string slave_path_;
};

}  // namespace clockcomm::comm
