// The exception family every layer raises. Messages are the fixed English texts the operators and
// the log screens know.
#pragma once

#include <stdexcept>
#include <string>

namespace clockcomm::core {

// Base of every error this program raises on purpose.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message) : std::runtime_error(message) {}
};

// A value given to an operation is not acceptable; names the parameter at fault.
class ArgumentException : public Error {
 public:
  ArgumentException(const std::string& message, std::string param_name = {})
      : Error(message), param_name_(std::move(param_name)) {}
  const std::string& ParamName() const { return param_name_; }

 private:
  std::string param_name_;
};

// The object is not in a state that allows the operation.
class InvalidOperationException : public Error {
 public:
  explicit InvalidOperationException(const std::string& message) : Error(message) {}
};

class TimeoutException : public Error {
 public:
  static constexpr const char* kDefaultMessage = "A timeout has occurred.";
  TimeoutException() : Error(kDefaultMessage) {}
  explicit TimeoutException(const std::string& message) : Error(message) {}
};

class ItemNotFoundException : public Error {
 public:
  static constexpr const char* kDefaultMessage = "The specified item was not found.";
  ItemNotFoundException() : Error(kDefaultMessage) {}
  explicit ItemNotFoundException(const std::string& message) : Error(message) {}
};

// A field was asked for past the end of a split line (fewer fields than a format needs).
class IndexOutOfRangeException : public Error {
 public:
  static constexpr const char* kDefaultMessage = "Index was outside the bounds of the array.";
  IndexOutOfRangeException() : Error(kDefaultMessage) {}
  explicit IndexOutOfRangeException(const std::string& message) : Error(message) {}
};

// Text that must be a number (or another typed value) is not.
class FormatException : public Error {
 public:
  explicit FormatException(const std::string& message) : Error(message) {}
};

// A failure of the operating system or a storage engine: "System error N: description".
class SystemError : public Error {
 public:
  SystemError(int number, const std::string& description);
  int Number() const { return number_; }
  const std::string& Description() const { return description_; }

  // Builds one from errno (or the given error number) with the system's description.
  static SystemError FromErrno(int error_number, const std::string& context = {});

 private:
  int number_;
  std::string description_;
};

}  // namespace clockcomm::core
