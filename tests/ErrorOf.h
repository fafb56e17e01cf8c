// What an operation complains of, for tests of bad input.
#pragma once

#include <string>

/// The text of the Error that the function throws, empty if it throws none. Others pass through.
template <class Error, class Function>
std::string errorOf(Function function) {
  try {
    function();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}
