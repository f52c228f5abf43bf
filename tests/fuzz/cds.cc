// What a CDS may answer. The first line of the input is the answer to the greeting, and the rest
// that to the question for three names.
#include "libcds/cds.h"

#include <sys/socket.h>

#include <algorithm>
#include <mutex>
#include <optional>

#include "tests/fuzz/fuzz.h"
#include "tests/support/fake_server.h"

namespace {

const std::vector<std::string> PATHS = {"a", "b", "c"};

constexpr std::string_view GREETING = "+PONG\r\n";

/// What the server is to answer.
struct Answers {
  std::mutex mutex;
  std::string greeting;
  std::string names;
};

/// The names in `answer`, in which a missing name is nothing. Returns nothing unless this is, as
/// short as possible, an array of three texts and nothing else. Some longer answers are understood,
/// too.
std::optional<std::vector<std::optional<std::string>>> read_names(std::string_view answer) {
  const auto take = [&](std::string_view text) {
    if (!answer.starts_with(text)) return false;
    answer.remove_prefix(text.size());
    return true;
  };
  if (!take("*3\r\n")) return {};
  std::vector<std::optional<std::string>> names;
  for (std::size_t i = 0; i < PATHS.size(); ++i) {
    if (take("$-1\r\n")) {
      names.emplace_back();
      continue;
    }
    if (!take("$")) return {};
    std::size_t size = 0;
    const std::string digits(answer.substr(0, answer.find('\r')));
    if (digits.empty() || digits.size() > 3) return {};
    if (digits.find_first_not_of("0123456789") != digits.npos) return {};
    if (digits.size() > 1 && digits[0] == '0') return {};
    size = std::stoul(digits);
    if (!take(digits + "\r\n") || answer.size() < size) return {};
    names.emplace_back(std::string(answer.substr(0, size)));
    answer.remove_prefix(size);
    if (!take("\r\n")) return {};
  }
  if (!answer.empty()) return {};
  return names;
}

void serve(Answers& answers, int client) {
  receive_some(client);
  std::string greeting;
  std::string names;
  {
    const std::lock_guard lock(answers.mutex);
    greeting = answers.greeting;
    names = answers.names;
  }
  send_text(client, greeting);
  const bool is_greeting = greeting == GREETING;
  if (is_greeting && !receive_some(client).empty()) send_text(client, names);
  // Nothing more comes, so the client does not wait for it.
  shutdown(client, SHUT_WR);
  while (!receive_some(client).empty()) {
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), size - 1);
  if (size == 0) return -1;
  enter_work_folder();
  static Answers answers;
  static const FakeServer SERVER("cds.sock", [](int client) { serve(answers, client); });
  {
    const std::lock_guard lock(answers.mutex);
    answers.greeting = input.substr(0, end + 1);
    answers.names = input.substr(end + 1);
  }
  toolkit::CCds cds(1);
  const bool is_greeting = input.substr(0, end + 1) == GREETING;
  demand(cds.handle() != nullptr || !is_greeting, "no connection in spite of a greeting");
  std::vector<toolkit::api_status_t> statuses;
  std::vector<toolkit::CElement> elements;
  std::vector<toolkit::element_property_t> properties;
  const bool is_read = cds.get_leaves(PATHS, statuses, elements, properties) == 0;
  const std::size_t count = is_read ? PATHS.size() : 0;
  demand(statuses.size() == count && elements.size() == count && properties.size() == count,
         "another number of names");
  const auto names = read_names(input.substr(end + 1));
  if (!is_greeting || !names) return 0;
  demand(is_read, "an answer is refused");
  for (std::size_t i = 0; i < count; ++i) {
    const std::optional<std::string>& name = (*names)[i];
    demand((statuses[i] == toolkit::API_STATUS_OK) == name.has_value(), "a name is lost or found");
    std::string text;
    elements[i].to_string(text);
    if (name) demand_equal(text, *name, "another name");
  }
  return 0;
}
