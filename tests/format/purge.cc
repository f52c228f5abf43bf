// Removes the rows of a series before a time, in seconds since the epoch.
//   purge DB DEVICE MINUTES TIME
#include <cstdio>
#include <cstdlib>

#include "libtrend/recorder.h"

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  toolkit::trend::CRecorder recorder;
  toolkit::trend::CDeviceProperties device{.path = argv[2], .aux_text = ""};
  toolkit::trend::CSeries series;
  const auto minutes = static_cast<std::uint32_t>(std::atol(argv[3]));
  if (recorder.open(argv[1]) != 0 || recorder.begin() != 0 || recorder.add_device(device) != 0 ||
      recorder.add_series(device, minutes, series) != 0 ||
      recorder.purge(series, std::atoll(argv[4])) != 0 || recorder.commit() != 0) {
    std::fprintf(stderr, "purge: %s\n", recorder.error().c_str());
    return 1;
  }
}
