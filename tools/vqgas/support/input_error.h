// tools/vqgas/support/input_error.h
//
// The two errors that end the program. main() prints one line on standard error and returns an exit code.
#pragma once
#include <stdexcept>
#include <string>

/// An input cannot be used or an output cannot be written: exit code 1. `name` is the file (or "standard input"),
/// `fault` one line.
class InputError : public std::runtime_error {
 public:
  InputError(const std::string& name, const std::string& fault) : std::runtime_error(name + ": " + fault) {}
};

/// The command line is invalid: exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
