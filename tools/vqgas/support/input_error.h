// tools/vqgas/support/input_error.h
//
// The two ways in which the program gives up. main() turns them into one line on standard error and an exit code.
#pragma once
#include <stdexcept>
#include <string>

/// Something the user gave cannot be used: exit code 1. `name` is the file (or "standard input"), `fault` one line.
class InputError : public std::runtime_error {
 public:
  InputError(const std::string& name, const std::string& fault) : std::runtime_error(name + ": " + fault) {}
};

/// The command line cannot be understood: exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
