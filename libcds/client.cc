#include "libcds/cds.h"

namespace toolkit {

CCds::CCds(int connect_flag) {
  if (connect_flag != 0) connect(connect_flag);
}

CCds::~CCds() { close(); }

int CCds::connect(int flag) {
  if (handle_ == nullptr) handle_ = pcd_init(nullptr, flag);
  return handle_ == nullptr ? -1 : 0;
}

void CCds::close() {
  if (handle_ != nullptr) pcd_close(handle_);
  handle_ = nullptr;
}

}  // namespace toolkit
