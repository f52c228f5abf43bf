#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "libcds/cds.h"
#include "tests/support/fake_server.h"
#include "tests/support/process.h"
#include "tests/support/redis_server.h"

// The library under test is built for the socket "cds.sock" of the working directory. No test
// measures time: ctest stops a test that never ends.

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using toolkit::API_STATUS_NOT_FOUND;
using toolkit::API_STATUS_OK;
using toolkit::api_status_t;
using toolkit::CCds;
using toolkit::CElement;
using toolkit::element_property_t;
using toolkit::ELEMENT_TYPE_NONE;
using toolkit::ELEMENT_TYPE_TEXT;
using toolkit::LONGEST_TEXT;

namespace {

struct ConnectionCloser {
  void operator()(pcd_connection* handle) const { pcd_close(handle); }
};
using Connection = std::unique_ptr<pcd_connection, ConnectionCloser>;

/// Works in a folder of its own.
class CdsTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(folder_.path()); }
  void TearDown() override { std::filesystem::current_path(before_); }

  /// The absolute path of the socket that the library is built for.
  [[nodiscard]] std::string socket_path() const { return folder_.file("cds.sock"); }

  [[nodiscard]] static bool connects_to(const std::string& path) {
    return Connection(pcd_init(path.c_str(), 1)) != nullptr;
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
  const TemporaryFolder folder_;
};

using PcdInit = CdsTest;
using GetLeaves = CdsTest;

/// What `get_leaves` returned and filled in.
struct Leaves {
  int result = 0;
  std::vector<api_status_t> statuses;
  std::vector<CElement> elements;
  std::vector<element_property_t> properties;

  [[nodiscard]] std::string text(std::size_t index) const {
    std::string text;
    elements.at(index).to_string(text);
    return text;
  }
};

Leaves get(CCds& cds, const std::vector<std::string>& paths) {
  Leaves leaves;
  leaves.result = cds.get_leaves(paths, leaves.statuses, leaves.elements, leaves.properties);
  return leaves;
}

void expect_failure(const Leaves& leaves) {
  EXPECT_NE(leaves.result, 0);
  EXPECT_THAT(leaves.statuses, IsEmpty());
  EXPECT_THAT(leaves.elements, IsEmpty());
  EXPECT_THAT(leaves.properties, IsEmpty());
}

/// Asks a server that answers the PING correctly, and then answers the request for `paths` with
/// `answer`.
Leaves get_answered_with(const std::string& socket, const std::vector<std::string>& paths,
                         const std::function<void(int client)>& answer) {
  const FakeServer server(socket, [&](int client) {
    answer_ping(client);
    receive_some(client);
    answer(client);
  });
  CCds cds(1);
  EXPECT_NE(cds.handle(), nullptr);
  return get(cds, paths);
}

Leaves get_answered_with(const std::string& socket, const std::vector<std::string>& paths,
                         const std::string& answer) {
  return get_answered_with(socket, paths, [&](int client) {
    send_text(client, answer);
    ignore(client);
  });
}

}  // namespace

TEST_F(PcdInit, ConnectsToTheSocketOfTheBuildByDefault) {
  const RedisServer server(socket_path());
  EXPECT_NE(Connection(pcd_init(nullptr, 1)), nullptr);
}

TEST_F(PcdInit, ConnectsToTheSocketThatIsNamed) {
  const std::string path = socket_path() + ".other";
  const RedisServer server(path);
  EXPECT_TRUE(connects_to(path));
  EXPECT_EQ(pcd_init(nullptr, 1), nullptr);
}

TEST_F(PcdInit, FailsWithoutAFile) { EXPECT_FALSE(connects_to(socket_path())); }

TEST_F(PcdInit, FailsOnAnEmptyPath) { EXPECT_FALSE(connects_to("")); }

TEST_F(PcdInit, FailsIfTheFileIsNotASocket) {
  write_file(socket_path(), "+PONG\r\n");
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfThePathIsAFolder) {
  EXPECT_FALSE(connects_to(std::filesystem::path(socket_path()).parent_path()));
}

TEST_F(PcdInit, FailsIfThePathIsTooLong) {
  const std::string longest = "./" + std::string(sizeof(sockaddr_un::sun_path) - 3, 's');
  const RedisServer server(longest);
  EXPECT_TRUE(connects_to(longest));
  EXPECT_FALSE(connects_to(longest + "s"));
}

TEST_F(PcdInit, FailsIfTheServerHasStopped) {
  RedisServer server(socket_path());
  server.stop();
  EXPECT_TRUE(std::filesystem::exists(socket_path()));
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheServerHangs) {
  const RedisServer server(socket_path());
  server.suspend();
  EXPECT_FALSE(connects_to(socket_path()));
  server.resume();
  EXPECT_TRUE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheServerRequiresAPassword) {
  const RedisServer server(socket_path(), {"--requirepass", "secret"});
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheQueueOfTheSocketStaysFull) {
  const int listener = listen_on(socket_path(), 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
  std::vector<int> clients;
  int result = 0;
  while (result == 0 && clients.size() < 100) {
    clients.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    result = connect(clients.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_FALSE(connects_to(socket_path()));
  for (const int client : clients) close(client);
  close(listener);
}

TEST_F(PcdInit, FailsWithoutAFreeDescriptor) {
  const RedisServer server(socket_path());
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  pcd_connection* const connection = pcd_init(nullptr, 1);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(connection, nullptr);
  EXPECT_TRUE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheServerNeverAnswers) {
  const FakeServer server(socket_path(), ignore);
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheAnswerIsTooSlow) {
  const FakeServer server(socket_path(), [](int client) {
    send_text(client, "+");
    dribble(client, 'P');
  });
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, AcceptsAnAnswerInPieces) {
  const FakeServer server(socket_path(), [](int client) {
    receive_some(client);
    for (const char byte : std::string("+PONG\r\n")) {
      send_text(client, {&byte, 1});
      std::this_thread::yield();
    }
  });
  EXPECT_TRUE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsIfTheServerClosesTheConnection) {
  const FakeServer server(socket_path(), [](int /*client*/) {});
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(PcdInit, FailsOnOtherAnswers) {
  for (const std::string answer :
       {"+OK\r\n", "$4\r\nPONG\r\n", ":1\r\n", "$-1\r\n", "*0\r\n", "*-1\r\n", "*1\r\n+PONG\r\n",
        "-PONG\r\n", "HTTP/1.1 400 Bad Request\r\n\r\n", "\r\n", "*2147483647\r\n"}) {
    const std::string path = socket_path();
    {
      const FakeServer server(path, [&](int client) {
        receive_some(client);
        send_text(client, answer);
        ignore(client);
      });
      EXPECT_FALSE(connects_to(path)) << answer;
    }
    unlink(path.c_str());
  }
}

TEST_F(PcdInit, FailsOnEndlessGarbage) {
  const FakeServer server(socket_path(), [](int client) { flood(client, "+garbage garbage "); });
  EXPECT_FALSE(connects_to(socket_path()));
}

TEST_F(GetLeaves, ReturnsTheTextsInTheOrderOfThePaths) {
  const RedisServer server(socket_path());
  server.publish("site/b/DisplayName", "second");
  server.publish("site/a/DisplayName", "first");
  CCds cds(1);
  const Leaves leaves =
      get(cds, {"site/b/DisplayName", "site/a/DisplayName", "site/b/DisplayName"});
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.statuses, ElementsAre(API_STATUS_OK, API_STATUS_OK, API_STATUS_OK));
  EXPECT_THAT(leaves.properties, SizeIs(3));
  ASSERT_THAT(leaves.elements, SizeIs(3));
  EXPECT_EQ(leaves.elements[0].type(), ELEMENT_TYPE_TEXT);
  EXPECT_EQ(leaves.text(0), "second");
  EXPECT_EQ(leaves.text(1), "first");
  EXPECT_EQ(leaves.text(2), "second");
}

TEST_F(GetLeaves, SaysWhichLeavesAreMissingOrNotTexts) {
  const RedisServer server(socket_path());
  server.publish("text", "found");
  EXPECT_EQ(server.cli({"RPUSH", "list", "a"}), "1\n");
  EXPECT_EQ(server.cli({"HSET", "hash", "field", "a"}), "1\n");
  CCds cds(1);
  const Leaves leaves = get(cds, {"absent", "list", "text", "hash"});
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.statuses, ElementsAre(API_STATUS_NOT_FOUND, API_STATUS_NOT_FOUND,
                                           API_STATUS_OK, API_STATUS_NOT_FOUND));
  ASSERT_THAT(leaves.elements, SizeIs(4));
  EXPECT_EQ(leaves.elements[0].type(), ELEMENT_TYPE_NONE);
  EXPECT_EQ(leaves.elements[1].type(), ELEMENT_TYPE_NONE);
  EXPECT_EQ(leaves.text(2), "found");
  EXPECT_EQ(leaves.elements[3].type(), ELEMENT_TYPE_NONE);
  EXPECT_THAT(leaves.properties, SizeIs(4));
}

TEST_F(GetLeaves, ReturnsEveryByteOfAText) {
  const RedisServer server(socket_path());
  std::string all_bytes;
  for (int byte = 0; byte < 256; ++byte) all_bytes += static_cast<char>(byte);
  const std::vector<std::string> texts = {"",
                                          "Außentemperatur °C",
                                          "a, b",
                                          "\"quoted\" 'twice'",
                                          "line\nline\r\n",
                                          "\r\n$-1\r\n",
                                          "%s %n",
                                          " ",
                                          all_bytes};
  std::vector<std::string> paths;
  for (const std::string& text : texts) {
    paths.push_back("leaf " + std::to_string(paths.size()));
    server.publish(paths.back(), text);
  }
  CCds cds(1);
  const Leaves leaves = get(cds, paths);
  EXPECT_EQ(leaves.result, 0);
  ASSERT_THAT(leaves.elements, SizeIs(texts.size()));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(leaves.statuses[i], API_STATUS_OK);
    EXPECT_EQ(leaves.elements[i].type(), ELEMENT_TYPE_TEXT);
    EXPECT_EQ(leaves.text(i), texts[i]);
  }
}

TEST_F(GetLeaves, SendsEveryByteOfAPath) {
  const RedisServer server(socket_path());
  const std::vector<std::string> paths = {"", "a b", "zürich/\"x\"", "line\r\nline", "%s%b", "*"};
  for (const std::string& path : paths) server.publish(path, "text of " + path);
  const std::string with_zero("zero\0byte", 9);
  EXPECT_EQ(server.cli({}, "SET \"zero\\x00byte\" \"text of zero\"\n"), "OK\n");
  CCds cds(1);
  for (const std::string& path : paths) EXPECT_EQ(get(cds, {path}).text(0), "text of " + path);
  EXPECT_EQ(get(cds, {with_zero}).text(0), "text of zero");
}

TEST_F(GetLeaves, ReadsThousandsOfLeavesAtOnce) {
  const RedisServer server(socket_path());
  constexpr std::size_t COUNT = 5000;
  const std::string padding(200, 'p');  // more in total than the buffers of a socket hold
  std::vector<std::string> paths;
  std::string commands;
  for (std::size_t i = 0; i < COUNT; ++i) {
    paths.push_back("device/" + padding + std::to_string(i) + "/DisplayName");
    if (i % 3 != 0) {
      commands += "SET " + paths.back() + " " + padding + std::to_string(i) + "\n";
    }
  }
  server.cli({}, commands);
  CCds cds(1);
  const Leaves leaves = get(cds, paths);
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.properties, SizeIs(COUNT));
  ASSERT_THAT(leaves.elements, SizeIs(COUNT));
  for (std::size_t i = 0; i < COUNT; ++i) {
    EXPECT_EQ(leaves.statuses[i], i % 3 != 0 ? API_STATUS_OK : API_STATUS_NOT_FOUND);
    EXPECT_EQ(leaves.text(i), i % 3 != 0 ? padding + std::to_string(i) : "");
  }
}

TEST_F(GetLeaves, TakesATextThatIsTooLongForNone) {
  const RedisServer server(socket_path());
  const std::string longest(LONGEST_TEXT, 't');
  server.publish("longest", longest);
  server.publish("longer", longest + "t");
  server.publish("much longer", std::string(5000000, 't'));
  CCds cds(1);
  const Leaves leaves = get(cds, {"much longer", "longest", "longer"});
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.statuses,
              ElementsAre(API_STATUS_NOT_FOUND, API_STATUS_OK, API_STATUS_NOT_FOUND));
  EXPECT_EQ(leaves.text(1), longest);
}

TEST_F(GetLeaves, NeedsNoMemoryForATextThatIsTooLong) {
  constexpr long MEGABYTE = 1024;  // in the unit of ru_maxrss
  rusage before = {};
  rusage after = {};
  getrusage(RUSAGE_SELF, &before);
  const Leaves leaves = get_answered_with(socket_path(), {"long", "short"}, [](int client) {
    constexpr int BLOCKS = 60;
    const std::string block(std::size_t{1} << 20, 'x');
    send_text(client, "*2\r\n$" + std::to_string(BLOCKS * block.size()) + "\r\n");
    for (int i = 0; i < BLOCKS; ++i) send_text(client, block);
    send_text(client, "\r\n$1\r\nx\r\n");
  });
  getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.statuses, ElementsAre(API_STATUS_NOT_FOUND, API_STATUS_OK));
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 20 * MEGABYTE);
}

TEST_F(GetLeaves, SendsOneRequestForAllPaths) {
  std::string request;
  const Leaves leaves = [&] {
    const FakeServer server(socket_path(), [&](int client) {
      answer_ping(client);
      request = receive_some(client);
      send_text(client, "*2\r\n$1\r\nx\r\n$-1\r\n");
      request += receive_some(client);
    });
    CCds cds(1);
    return get(cds, {"a", "b/c"});
  }();
  EXPECT_EQ(leaves.result, 0);
  EXPECT_EQ(request, "*3\r\n$4\r\nMGET\r\n$1\r\na\r\n$3\r\nb/c\r\n");
}

TEST_F(GetLeaves, SendsNoRequestForNoPaths) {
  std::string request = "none yet";
  Leaves leaves;
  {
    const FakeServer server(socket_path(), [&](int client) {
      answer_ping(client);
      request = receive_some(client);
    });
    CCds cds(1);
    leaves = get(cds, {});
  }
  EXPECT_EQ(leaves.result, 0);
  EXPECT_THAT(leaves.elements, IsEmpty());
  EXPECT_EQ(request, "");
}

TEST_F(GetLeaves, ServesSeveralRequestsOnOneConnection) {
  const RedisServer server(socket_path());
  server.publish("a", "1");
  CCds cds(1);
  EXPECT_EQ(get(cds, {"a"}).text(0), "1");
  server.publish("a", "2");
  EXPECT_EQ(get(cds, {"b", "a"}).text(1), "2");
}

TEST_F(GetLeaves, KeepsItsConnection) {
  const RedisServer server(socket_path());
  CCds cds(1);
  pcd_connection* const connection = cds.handle();
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(cds.connect(1), 0);
  EXPECT_EQ(cds.handle(), connection);
}

TEST_F(GetLeaves, FailsWithoutAConnection) {
  CCds unasked(0);
  expect_failure(get(unasked, {"a"}));
  expect_failure(get(unasked, {}));
  CCds refused(1);
  EXPECT_EQ(refused.handle(), nullptr);
  expect_failure(get(refused, {"a"}));
}

TEST_F(GetLeaves, FailsIfTheServerDiedBefore) {
  RedisServer server(socket_path());
  CCds cds(1);
  ASSERT_NE(cds.handle(), nullptr);
  server.stop();
  // Writing to a closed connection raises a signal by default, which would end the test.
  expect_failure(get(cds, {"a"}));
}

TEST_F(GetLeaves, DoesNotUseALateAnswerForTheNextRequest) {
  const RedisServer server(socket_path());
  server.publish("a", "of a");
  server.publish("b", "of b");
  CCds cds(1);
  server.suspend();
  expect_failure(get(cds, {"a"}));
  server.resume();
  expect_failure(get(cds, {"b"}));
  cds.close();
  EXPECT_EQ(cds.connect(1), 0);
  EXPECT_EQ(get(cds, {"b"}).text(0), "of b");
}

TEST_F(GetLeaves, FailsIfTheServerNeverAnswers) {
  expect_failure(get_answered_with(socket_path(), {"a"}, ignore));
}

TEST_F(GetLeaves, FailsIfTheServerNeverReads) {
  const FakeServer server(socket_path(), [](int client) {
    answer_ping(client);
    ignore(client);
  });
  CCds cds(1);
  expect_failure(get(cds, std::vector<std::string>(1000, std::string(10000, 'p'))));
}

TEST_F(GetLeaves, FailsIfTheAnswerIsTooSlow) {
  expect_failure(get_answered_with(socket_path(), {"a"}, [](int client) {
    send_text(client, "*1\r\n$1000000\r\n");
    dribble(client, 'x');
  }));
}

TEST_F(GetLeaves, FailsIfTheServerDiesBeforeItsAnswer) {
  expect_failure(get_answered_with(socket_path(), {"a"}, [](int /*client*/) {}));
}

TEST_F(GetLeaves, FailsIfTheServerDiesDuringItsAnswer) {
  expect_failure(get_answered_with(socket_path(), {"a", "b"}, [](int client) {
    send_text(client, "*2\r\n$1\r\nx\r\n$5\r\nna");
  }));
}

TEST_F(GetLeaves, FailsOnAnswersOfAnotherType) {
  for (const std::string answer : {
           "-ERR unknown command\r\n",
           "-NOAUTH Authentication required.\r\n",
           "+OK\r\n",
           "$1\r\nx\r\n",
           "$-1\r\n",
           ":2\r\n",
           "*-1\r\n",
           "*0\r\n",
           "*1\r\n$1\r\nx\r\n",
           "*3\r\n$1\r\nx\r\n$1\r\ny\r\n$1\r\nz\r\n",
           "*2\r\n$1\r\nx\r\n:1\r\n",
           "*2\r\n$1\r\nx\r\n+y\r\n",
           "*2\r\n$1\r\nx\r\n-ERR y\r\n",
           "*2\r\n$1\r\nx\r\n*1\r\n$1\r\ny\r\n",
           "*2\r\n$1\r\nx\r\n*2\r\n$1\r\ny\r\n$1\r\nz\r\n",
           "*2\r\n$1\r\nx\r\n?\r\n",
           "*2\r\n$1\r\nx\r\n$-2\r\n",
           "*two\r\n",
           "garbage\r\n",
       }) {
    SCOPED_TRACE(answer);
    expect_failure(get_answered_with(socket_path(), {"a", "b"}, answer));
    unlink(socket_path().c_str());
  }
}

TEST_F(GetLeaves, FailsOnLengthsBeyondTheMemory) {
  for (const std::string answer : {
           "*2147483647\r\n",
           "*99999999999999999999\r\n",
           "*2\r\n*2147483647\r\n",
           "*2\r\n*2\r\n*2147483647\r\n",
           "*2\r\n$99999999999999999999\r\n",
       }) {
    SCOPED_TRACE(answer);
    expect_failure(get_answered_with(socket_path(), {"a", "b"}, answer));
    unlink(socket_path().c_str());
  }
  // Lengths that overflow if sizes have 32 bits.
  for (const std::string length : {"4294967293", "4294967294", "4294967295"}) {
    SCOPED_TRACE(length);
    expect_failure(get_answered_with(socket_path(), {"a", "b"}, [&](int client) {
      send_text(client, "*2\r\n$" + length + "\r\nxxxxxxxx");
    }));
    unlink(socket_path().c_str());
  }
}

TEST_F(GetLeaves, FailsOnAnEndlessAnswer) {
  const std::string block(100000, 'x');
  expect_failure(get_answered_with(socket_path(), {"a"}, [&](int client) {
    send_text(client, "*1\r\n$2000000000\r\n");
    flood(client, block);
  }));
  unlink(socket_path().c_str());
  expect_failure(get_answered_with(socket_path(), {"a"}, [&](int client) {
    send_text(client, "+");
    flood(client, block);
  }));
}
