#include "cloud_agent/requests/request_line.h"

#include <gtest/gtest.h>

#include "support/fake_loop.h"

namespace agent {
namespace {

class RequestLineTest : public testing::Test {
 protected:
  RequestLineTest() {
    line_.Open([this] {
      const std::optional<InboundRequest> request = line_.Take();
      taken_ += request ? request->payload : "nothing";
    });
  }

  bool Add(const std::string& payload) {
    InboundRequest request;
    request.payload = payload;
    const bool is_added = line_.Add(&request);
    EXPECT_EQ(request.payload, is_added ? "" : payload);
    return is_added;
  }

  FakeLoop loop_;
  RequestLine line_{2, loop_.Post()};
  std::string taken_;
};

TEST_F(RequestLineTest, GivesEachRequestOneTurnInOrder) {
  EXPECT_TRUE(Add("a"));
  EXPECT_TRUE(Add("b"));
  EXPECT_EQ(taken_, "");
  loop_.Run();
  EXPECT_EQ(taken_, "ab");
}

TEST_F(RequestLineTest, TurnsAwayAndCountsWhatIsTooMuch) {
  Add("a");
  Add("b");
  EXPECT_FALSE(Add("c"));
  EXPECT_EQ(line_.turned_away(), 1U);
  loop_.RunOne();
  EXPECT_TRUE(Add("d"));
  loop_.Run();
  EXPECT_EQ(taken_, "abd");
}

TEST_F(RequestLineTest, PostsAnotherTurn) {
  line_.PostTurn();
  loop_.Run();
  EXPECT_EQ(taken_, "nothing");
}

}  // namespace
}  // namespace agent
