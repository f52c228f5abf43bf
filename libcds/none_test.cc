#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "libcds/cds.h"
#include "tests/support/fake_server.h"
#include "tests/support/process.h"

using testing::IsEmpty;

TEST(CdsOfKindNone, NeverConnects) {
  const TemporaryFolder folder;
  const std::string path = folder.file("cds.sock");
  bool was_contacted = false;
  {
    const FakeServer server(path, [&](int client) {
      was_contacted = true;
      answer_ping(client);
    });
    EXPECT_EQ(pcd_init(path.c_str(), 1), nullptr);
  }
  EXPECT_FALSE(was_contacted);
  EXPECT_EQ(pcd_init(nullptr, 1), nullptr);
  toolkit::CCds cds(1);
  EXPECT_EQ(cds.handle(), nullptr);
  EXPECT_NE(cds.connect(1), 0);
}

TEST(CdsOfKindNone, ReturnsNoLeaves) {
  toolkit::CCds cds(1);
  std::vector<toolkit::api_status_t> statuses;
  std::vector<toolkit::CElement> elements;
  std::vector<toolkit::element_property_t> properties;
  EXPECT_NE(cds.get_leaves({"a"}, statuses, elements, properties), 0);
  EXPECT_THAT(statuses, IsEmpty());
  EXPECT_THAT(elements, IsEmpty());
  EXPECT_THAT(properties, IsEmpty());
}
