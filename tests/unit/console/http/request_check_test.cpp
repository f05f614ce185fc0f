#include "console/http/request_check.h"

#include <gtest/gtest.h>

namespace console {
namespace {

HttpRequest FromThePage() {
  HttpRequest request;
  request.host = "127.0.0.1:8090";
  request.origin = "http://127.0.0.1:8090";
  request.token = "secret";
  return request;
}

const RequestCheck kCheck(8090, "secret");

TEST(RequestCheck, LetsThePageDoAll) {
  EXPECT_EQ(kCheck.Change(FromThePage()), "");
  HttpRequest by_name = FromThePage();
  by_name.host = "localhost:8090";
  by_name.origin = "http://localhost:8090";
  EXPECT_EQ(kCheck.Change(by_name), "");
}

TEST(RequestCheck, ServesNoOtherHost) {
  for (const char* host : {"", "evil.example", "evil.example:8090", "127.0.0.1", "127.0.0.1:80901",
                           "127.0.0.1:8090.evil.example"}) {
    HttpRequest request = FromThePage();
    request.host = host;
    request.origin = "http://" + request.host;
    EXPECT_NE(kCheck.Host(request), "") << host;
    EXPECT_NE(kCheck.Change(request), "") << host;
  }
}

TEST(RequestCheck, TakesNoChangeFromAnotherOrigin) {
  for (const char* origin : {"", "null", "http://evil.example", "https://127.0.0.1:8090",
                             "http://127.0.0.1:8091", "http://localhost:8090"}) {
    HttpRequest request = FromThePage();
    request.origin = origin;
    EXPECT_NE(kCheck.Origin(request), "") << origin;
    EXPECT_NE(kCheck.Change(request), "") << origin;
  }
}

TEST(RequestCheck, TakesNoChangeWithoutTheToken) {
  for (const char* token : {"", "Secret", "secre", "secrets"}) {
    HttpRequest request = FromThePage();
    request.token = token;
    EXPECT_NE(kCheck.Change(request), "") << token;
  }
}

TEST(RequestCheck, MakesAnotherTokenEachTime) {
  EXPECT_EQ(MakeToken().size(), 32U);
  EXPECT_NE(MakeToken(), MakeToken());
}

}  // namespace
}  // namespace console
