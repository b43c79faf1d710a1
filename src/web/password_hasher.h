// Operators' passwords as libsodium's memory-hard Argon2id hashes (crypto_pwhash_str), with the
// INTERACTIVE costs: about 64 MiB and a few tens of milliseconds per hash, which keeps a login
// quick for a person and each guess of a stolen hash expensive. One hash at a time per process,
// so that a burst of logins costs 64 MiB, not 64 MiB per server thread.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace clockcomm::web {

class PasswordHasher {
 public:
  // Initialises libsodium; throws core::InvalidOperationException when it cannot.
  PasswordHasher();

  // The encoded hash (algorithm, costs and salt included) of password.
  std::string Hash(std::string_view password);
  // Whether password matches the encoded hash; false for a malformed hash.
  bool Verify(std::string_view encoded_hash, std::string_view password);
  // Spends the time of a Verify on a fixed hash, so that an unknown name answers no faster than
  // a wrong password.
  void VerifyNothing(std::string_view password);

 private:
  std::mutex mutex_;
  std::once_flag dummy_made_;
  std::string dummy_hash_;  // made on first use: most runs never need it
};

}  // namespace clockcomm::web
