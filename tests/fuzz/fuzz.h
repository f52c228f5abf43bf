// What the fuzzers share. A fuzzer is a program of libFuzzer, which calls LLVMFuzzerTestOneInput
// with input after input, and changes inputs so that more of the code runs. A program that ends by
// a signal, a sanitizer or `demand` has found a defect.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// libFuzzer calls this function of each fuzzer. Returns 0, or -1 for an input that is not worth to
/// be kept.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the program with a message if `holds` is false, so that libFuzzer keeps the input.
void demand(bool holds, std::string_view what);
/// The same for two texts that must be equal; the message shows both.
void demand_equal(std::string_view actual, std::string_view expected, std::string_view what);

/// The working folder of the fuzzer: a new one, which is removed at the end of the program. The
/// first call makes and enters it.
void enter_work_folder();
/// Removes everything in the working folder.
void clear_work_folder();

/// How a call ended, and what it wrote.
struct Captured {
  int status = 0;
  std::string out;
  std::string err;
};

/// Calls `function`, which is a whole program and may close its standard streams, with `input` as
/// standard input. The message of an exception is the last line of `err`.
[[nodiscard]] Captured capture(const std::function<int()>& function, const std::string& input = "");

/// Splits `text` at each `separator`. An empty text is one empty part.
[[nodiscard]] std::vector<std::string> split(std::string_view text, char separator);

/// The arguments of a `main`: pointers into `words`, and a null pointer at the end.
[[nodiscard]] std::vector<char*> to_argv(std::vector<std::string>& words);
