#include "web/password_hasher.h"

#include <sodium.h>

#include "core/errors.h"

namespace clockcomm::web {

PasswordHasher::PasswordHasher() {
  if (sodium_init() < 0) throw core::InvalidOperationException("libsodium cannot be initialised");
}

std::string PasswordHasher::Hash(std::string_view password) {
  char out[crypto_pwhash_STRBYTES];
  std::lock_guard lock(mutex_);
  if (crypto_pwhash_str(out, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    throw core::InvalidOperationException("Out of memory while hashing a password.");
  }
  return out;
}

bool PasswordHasher::Verify(std::string_view encoded_hash, std::string_view password) {
  // crypto_pwhash_str_verify reads a NUL-terminated string of at most STRBYTES.
  if (encoded_hash.size() >= crypto_pwhash_STRBYTES) return false;
  const std::string hash(encoded_hash);
  std::lock_guard lock(mutex_);
  return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

void PasswordHasher::VerifyNothing(std::string_view password) {
  std::call_once(dummy_made_, [this] { dummy_hash_ = Hash("no operator has this password"); });
  Verify(dummy_hash_, password);
}

}  // namespace clockcomm::web
