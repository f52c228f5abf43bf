// Recorded rows and what a dump shows of them, against the model.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <set>

#include "cli/run.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/model.h"
#include "tests/support/time_zone.h"

namespace {

/// The fuzzer's input as decisions.
class Decisions : public FuzzedDataProvider {
 public:
  using FuzzedDataProvider::FuzzedDataProvider;

  [[nodiscard]] bool is_lucky(unsigned chances) {
    return ConsumeIntegralInRange<unsigned>(1, chances) == chances;
  }
  [[nodiscard]] std::size_t number(std::size_t largest) {
    return ConsumeIntegralInRange<std::size_t>(0, largest);
  }
  template <typename List>
  [[nodiscard]] auto one_of(const List& list) {
    return list[number(list.size() - 1)];
  }
};

double make_value(Decisions& decisions) {
  if (decisions.ConsumeBool()) return decisions.ConsumeIntegral<std::int16_t>() / 100.0;
  return std::bit_cast<double>(decisions.ConsumeIntegral<std::uint64_t>());
}

ModelLog make_log(Decisions& decisions) {
  ModelLog log;
  log.device = "plant";
  for (const char* path : {"b/x", "level", "a/z", "b"}) {
    const unsigned statistics = decisions.ConsumeIntegralInRange<unsigned>(0, 31);
    if (statistics != 0) log.params.push_back({path, statistics});
  }
  if (log.params.empty()) log.params.push_back({"pump", ACTUAL});
  std::size_t slots = 0;
  for (const ModelParam& param : log.params) {
    slots += static_cast<std::size_t>(std::popcount(param.statistics));
  }
  for (const std::uint32_t minutes : {1U, 5U, 7U, 15U, 60U, 1440U}) {
    if (decisions.ConsumeBool()) log.minutes.push_back(minutes);
  }
  if (log.minutes.empty()) log.minutes.push_back(10);

  const std::int64_t begin =
      decisions.ConsumeBool()
          ? utc(2023, 3, 12, 2)
          : decisions.ConsumeIntegralInRange<std::int64_t>(86'400, 4'000'000'000);
  const bool is_even = decisions.ConsumeBool();
  std::set<std::pair<std::uint32_t, std::int64_t>> taken;
  while (decisions.remaining_bytes() > 32 && log.rows.size() < 700) {
    // Even rows come in runs, so that they fill blocks.
    const std::size_t run = is_even ? decisions.number(300) : 1;
    const std::uint32_t minutes = decisions.one_of(log.minutes);
    std::int64_t time = begin + decisions.ConsumeIntegral<std::uint16_t>();
    for (std::size_t i = 0; i < run; ++i, time += std::int64_t{60} * minutes) {
      if (!taken.emplace(minutes, time).second) continue;
      ModelRow row = {
          minutes, time, is_even ? 1 : decisions.ConsumeIntegralInRange(0, 100) / 100.0, {}};
      const double value = make_value(decisions);
      const std::size_t size = is_even ? slots : decisions.number(slots);
      for (std::size_t slot = 0; slot < size; ++slot) {
        row.values.push_back(is_even ? value : make_value(decisions));
      }
      log.rows.push_back(std::move(row));
    }
  }
  return log;
}

/// Returns what is asked for. Its bytes are at the end of the input, where FuzzedDataProvider takes
/// numbers from.
DumpRequest make_request(Decisions& decisions, const ModelLog& log) {
  DumpRequest request;
  request.zone = decisions.PickValueInArray(ZONES);
  request.use_utc = decisions.ConsumeBool();
  for (std::size_t i = decisions.number(3); i > 0; --i) {
    request.params.push_back(decisions.one_of(log.params).path);
  }
  for (std::size_t i = decisions.number(3); i > 0; --i) {
    request.intervals.push_back(decisions.is_lucky(5) ? 0 : decisions.one_of(log.minutes));
  }
  request.input_format = "%d.%m.%Y %T";
  const auto make_time = [&]() -> std::optional<std::int64_t> {
    if (log.rows.empty() || decisions.ConsumeBool()) return {};
    std::int64_t time = decisions.one_of(log.rows).time + decisions.ConsumeIntegral<std::int16_t>();
    time = std::max<std::int64_t>(time, 60);
    const Zone& zone = request.use_utc ? UTC : request.zone;
    while (zone.is_near_change(time)) time += 3600;
    return time;
  };
  request.start = make_time();
  request.end = make_time();
  request.max_records = decisions.number(60);
  request.offset = decisions.number(40);
  request.chunk_size = static_cast<std::uint32_t>(decisions.number(20));
  request.ascending = decisions.ConsumeBool();
  request.reverse = decisions.ConsumeBool();
  request.interval_begin = decisions.ConsumeBool();
  request.percent_valid = decisions.ConsumeBool();
  request.header = decisions.ConsumeBool();
  if (decisions.ConsumeBool()) request.time_format = "%T";
  // Deliberate: without chunks and without a limit, a dump that finds no row never ends.
  if (request.chunk_size == 0U && request.max_records == 0) {
    DumpRequest bare = request;
    bare.header = false;
    if (expected_dump(log, bare).first.empty()) request.chunk_size = 1;
  }
  return request;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Decisions decisions(data, size);
  const std::size_t requests = 1 + decisions.number(3);
  // The log takes what the requests leave of the input.
  Decisions log_decisions(data, size > 64 ? size - 64 : 0);
  const ModelLog log = make_log(log_decisions);
  enter_work_folder();
  clear_work_folder();
  record(log, "trend.db");
  for (std::size_t i = 0; i < requests; ++i) {
    const DumpRequest request = make_request(decisions, log);
    const TimeZone zone(request.zone.name);
    std::vector<std::string> words = request.arguments("trend.db", log.device);
    words.insert(words.begin(), "trendcsv");
    const auto argv = to_argv(words);
    const Captured result =
        capture([&] { return run_program(static_cast<int>(words.size()), argv.data()); });
    const auto [text, status] = expected_dump(log, request);
    demand_equal(result.err, "", "a dump has a message");
    demand_equal(result.out, text, "a dump is wrong");
    demand(result.status == status, "a dump ends with another exit status");
  }
  return 0;
}
