#include "libtrend/sqlite/block_cursor.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "libtrend/statistics.h"

namespace toolkit::trend {

// Each head says where the block before it ended, the state of the series where the first and the
// last block end, and both have a checksum. So no block that is lost, repeated or in another place
// goes unnoticed, wherever a walk starts and whatever a search by the tree of the table comes to.
// A block that got a late row replaces one with the same ends. If a disk lost that change, only the
// number of rows differs from the state's, so a walk from one end to the other adds them up.

/// Returns `is_right`. Where it is false, the blocks are damaged.
bool BlockChain::expect(bool is_right) {
  if (!is_right) error_ = "the blocks of a series are damaged";
  return is_right;
}

/// Makes the head that was read with `result` the current one.
bool BlockChain::take(BlockTable::Result result) {
  has_layout_ = false;
  has_head_ = false;
  if (result == BlockTable::Result::FAILED) return false;
  if (result == BlockTable::Result::MISSING) return expect(false);
  has_head_ = head_.series_id == state_.series_id &&
              (head_.previous == 0) == (head_.last_time == state_.first_block) &&
              head_.last_time <= state_.last_block &&
              (remaining_ != nullptr || head_.change <= state_.changes);
  if (!expect(has_head_)) return false;
  rows_from_first_ = head_.previous == 0 ? head_.rows : UNKNOWN;
  rows_to_last_ = head_.last_time == state_.last_block ? head_.rows : UNKNOWN;
  return has_right_sum();
}

/// Expects that the blocks have the rows that the state says, if all of them were passed.
bool BlockChain::has_right_sum() {
  if (remaining_ != nullptr) return true;
  const std::int64_t sum = head_.last_time == state_.last_block ? rows_from_first_
                           : head_.previous == 0                ? rows_to_last_
                                                                : UNKNOWN;
  return sum == UNKNOWN || expect(sum == state_.sealed_rows);
}

bool BlockChain::go_to(std::int64_t last_time) {
  const BlockTable::Result result = table_.find(state_.series_id, last_time, head_, error_);
  if (remaining_ != nullptr) {
    // The block before may be one that is left out.
    const auto& ends = remaining_->ends;
    const auto here = std::lower_bound(ends.begin(), ends.end(), last_time);
    head_.previous = here == ends.begin() ? 0 : *(here - 1);
  }
  return take(result);
}

bool BlockChain::go_to_first_from(std::int64_t time) {
  if (remaining_ == nullptr) return take(table_.find_from(state_.series_id, time, head_, error_));
  // The last one is `state_.last_block`, and `time` is not after it.
  const auto& ends = remaining_->ends;
  return go_to(*std::lower_bound(ends.begin(), ends.end(), time));
}

bool BlockChain::find(std::int64_t time, bool& is_found) {
  is_found = time <= state_.last_block;
  if (!is_found || has_at(time)) return true;
  return go_to_first_from(time) && expect(has_at(time));
}

bool BlockChain::go_on(bool ascending, bool& is_found) {
  const std::int64_t here = head_.last_time;
  const std::int64_t passed = ascending ? rows_from_first_ : rows_to_last_;
  is_found = ascending ? here != state_.last_block : head_.previous != 0;
  if (!is_found) return true;
  const bool is_next = ascending ? go_to_first_from(here + 1) && expect(head_.previous == here)
                                 : go_to(head_.previous);
  if (!is_next) return false;
  if (passed != UNKNOWN) (ascending ? rows_from_first_ : rows_to_last_) = passed + head_.rows;
  return has_right_sum();
}

bool BlockChain::go_to_last(bool& is_found) {
  is_found = state_.last_block != 0;
  return !is_found || (has_head_ && head_.last_time == state_.last_block) ||
         go_to(state_.last_block);
}

bool BlockChain::find_before(std::int64_t time, std::int64_t& timestamp) {
  timestamp = state_.last_block;
  if (time > state_.last_block) return true;
  if (!has_at(time)) {
    BlockChain other(table_, state_, error_);
    other.remaining_ = remaining_;
    bool is_found = false;
    return other.find(time, is_found) && other.find_before(time, timestamp);
  }
  timestamp = head_.previous;
  if (time <= head_.first_time) return true;
  if (layout() == nullptr) return false;
  timestamp = *(std::lower_bound(layout_.times.begin(), layout_.times.end(), time) - 1);
  return true;
}

const BlockLayout* BlockChain::layout() {
  if (!has_layout_) has_layout_ = expect(decode_layout(head_, layout_));
  return has_layout_ ? &layout_ : nullptr;
}

const BlockValues* BlockChain::values(const std::vector<std::uint32_t>& slots) {
  if (layout() == nullptr) return nullptr;
  const BlockValues::Lose lose = [this](std::size_t index) {
    remaining_->lose_values(head_, index);
  };
  return values_.load(table_, head_, layout_, slots, remaining_ == nullptr ? nullptr : &lose,
                      error_)
             ? &values_
             : nullptr;
}

BlockCursor::BlockCursor(BlockChain& chain, const std::vector<CParamProperties>& params,
                         bool ascending)
    : chain_(chain), sample_count_(params.size()), ascending_(ascending) {
  for (const CParamProperties& param : params) {
    // No block has slots that the number can't hold.
    constexpr std::uint64_t MAX_SLOT = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t slot = param.aux_1;
    for (const Statistic& statistic : STATISTICS) {
      if (!(param.*statistic.flag)) continue;
      slots_.push_back(static_cast<std::uint32_t>(std::min(slot++, MAX_SLOT)));
      places_.push_back({static_cast<std::uint32_t>(&param - params.data()), statistic.member});
    }
  }
}

bool BlockCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = latest;
  timestamp_ = NO_ROW;
  left_ = 0;
  const std::int64_t time = ascending_ ? earliest : latest;
  bool is_found = false;
  if (!chain_.find(time, is_found)) return false;
  if (is_found && chain_.head().first_time <= time) return place_in_block(time);
  // The time is in no block.
  if (!ascending_ &&
      !(is_found ? chain_.go_on(ascending_, is_found) : chain_.go_to_last(is_found))) {
    return false;
  }
  if (is_found) enter_block();
  return true;
}

/// Goes to the row of the current block that is the first one from `time` on.
bool BlockCursor::place_in_block(std::int64_t time) {
  if (!load_times()) return false;
  const std::vector<std::int64_t>& times = layout_->times;
  // The first time of the block is not after `time`, and the last one is not before it.
  const auto place = ascending_ ? std::lower_bound(times.begin(), times.end(), time)
                                : std::upper_bound(times.begin(), times.end(), time) - 1;
  index_ = static_cast<std::size_t>(place - times.begin());
  left_ = ascending_ ? times.size() - 1 - index_ : index_;
  set_timestamp(*place);
  return true;
}

/// Goes to the first row of the current block.
void BlockCursor::enter_block() {
  const BlockHead& head = chain_.head();
  layout_ = nullptr;
  values_ = nullptr;
  left_ = static_cast<std::size_t>(head.rows - 1);
  index_ = ascending_ ? 0 : left_;
  set_timestamp(ascending_ ? head.first_time : head.last_time);
}

/// Goes to the first row of the next block.
bool BlockCursor::leave_block() {
  timestamp_ = NO_ROW;
  left_ = 0;
  bool is_found = false;
  if (!chain_.go_on(ascending_, is_found)) return false;
  if (is_found) enter_block();
  return true;
}

bool BlockCursor::load_times() {
  layout_ = chain_.layout();
  values_ = nullptr;
  return layout_ != nullptr;
}

void BlockCursor::set_timestamp(std::int64_t time) {
  timestamp_ = time >= earliest_ && time <= latest_ ? time : NO_ROW;
}

bool BlockCursor::advance() {
  if (left_ == 0) return leave_block();
  if (layout_ == nullptr && !load_times()) return false;
  --left_;
  ascending_ ? ++index_ : --index_;
  set_timestamp(layout_->times[index_]);
  return true;
}

bool BlockCursor::pass(std::uint64_t count) {
  return pass_before(ascending_ ? std::numeric_limits<std::int64_t>::max() : NO_ROW, count);
}

bool BlockCursor::pass_before(std::int64_t bound, std::uint64_t& count) {
  while (count > 0 && timestamp_ != NO_ROW && is_before(timestamp_, bound)) {
    const std::int64_t end = ascending_ ? chain_.head().last_time : chain_.head().first_time;
    if (count > left_ && end >= earliest_ && end <= latest_ && is_before(end, bound)) {
      count -= left_ + 1;
      if (!leave_block()) return false;
    } else {
      --count;
      if (!advance()) return false;
    }
  }
  return true;
}

bool BlockCursor::decode(CSnapshot& row) {
  if (values_ == nullptr) {
    if (!load_times()) return false;
    values_ = chain_.values(slots_);
    if (values_ == nullptr) return false;
  }
  constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();
  row.timestamp = static_cast<std::time_t>(timestamp_);
  row.valid_ratio = layout_->valid_ratios[index_];
  row.samples.assign(sample_count_, CSample{MISSING, MISSING, MISSING, MISSING, MISSING});
  const double* value = values_->row(index_);
  CSample* samples = row.samples.data();
  for (const Place& place : places_) samples[place.sample].*place.member = *value++;
  return true;
}

}  // namespace toolkit::trend
