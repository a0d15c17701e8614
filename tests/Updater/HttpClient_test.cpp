#include "Updater/HttpClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "LogCapture.h"
#include "tools/QDException.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

void feedHeader(HttpClient::Headers& headers, std::string line) {
  EXPECT_EQ(HttpClient::readHeadersCb(line.data(), 1, line.size(), &headers), line.size());
}

TEST(HttpClient, ReadsHeaderLines) {
  HttpClient::Headers headers;
  for (const char* const line :
       {"HTTP/1.1 200 OK\r\n", "Content-Length:   1234  \r\n", "X-Time:\t12:30:45\r\n",
        "x-time: 2\r\n", "X-Twice: 1\r\n", "X-Twice: 2\r\n", "X-Empty:\r\n", "\r\n"}) {
    feedHeader(headers, line);
  }
  EXPECT_THAT(headers,
              ElementsAre(Pair("Content-Length", "1234"), Pair("X-Empty", ""),
                          Pair("X-Time", "12:30:45"), Pair("X-Twice", "2"), Pair("x-time", "2")));
}

TEST(HttpClient, StoresABoundedNumberOfHeaders) {
  HttpClient::Headers headers;
  for (int i = 0; i < 2000; ++i) feedHeader(headers, "X-" + std::to_string(i) + ": v\r\n");
  EXPECT_EQ(headers.size(), 1000U);
  headers.clear();
  for (int i = 0; i < 20; ++i)
    feedHeader(headers, std::to_string(i) + ":" + std::string(100000, 'v'));
  EXPECT_EQ(headers.size(), 10U);
}

TEST(HttpClient, KeepsABodyInBounds) {
  std::string body(HttpClient::kMaxBody - 2, 'x');
  char data[] = "ab";
  EXPECT_EQ(HttpClient::readResponsCb(data, 1, 2, &body), 2U);
  EXPECT_EQ(HttpClient::readResponsCb(data, 1, 1, &body), 0U);
  EXPECT_EQ(body.size(), HttpClient::kMaxBody);
}

TEST(HttpClient, LogsEveryTenthPercentThatIsMet) {
  constexpr struct {
    curl_off_t total, now;
  } kCalls[] = {{0, 5},
                {100, 0},
                {100, 9},
                {100, 11},
                {100, 20},
                {100, 20},
                {100, 30},
                {100, 10},
                {100, 30},
                {3, 3},
                {1LL << 40, 1LL << 40}};
  LogCapture log(QDLOG_ROOT, 0);
  int last = 0;
  for (const auto& [total, now] : kCalls)
    EXPECT_EQ(HttpClient::progressCb(&last, total, now, 0, 0), 0);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY Loading 20%", "ROOT:NFY Loading 30%",
                                       "ROOT:NFY Loading 30%", "ROOT:NFY Loading 100%"));
}

TEST(GetContentLength, PrefersTheLowerCaseKey) {
  unsigned long long size = 99;
  HttpClient::Headers headers = {{"CONTENT-LENGTH", "1"}};
  EXPECT_EQ(utils::getContentLength(headers, size), -1);
  EXPECT_EQ(size, 99U);
  headers["Content-Length"] = "5, 5";
  EXPECT_EQ(utils::getContentLength(headers, size), 0);
  EXPECT_EQ(size, 5U);
  headers["content-length"] = "7";
  EXPECT_EQ(utils::getContentLength(headers, size), 0);
  EXPECT_EQ(size, 7U);
  headers["content-length"] = "abc";
  EXPECT_THROW(utils::getContentLength(headers, size), std::invalid_argument);
}

TEST(DecodeURL, ReadsPairsOfDigits) {
  constexpr struct {
    const char* hex;
    const char* expected;
  } kCases[] = {
      {"", ""},        {"68747470", "http"}, {"4a4B", "JK"},    {"6", ""},        {"687", "h"},
      {"68zz69", "h"}, {"6800", "h"},        {"68006900", "h"}, {"http://x", ""},
  };
  for (const auto& [hex, expected] : kCases) EXPECT_EQ(utils::decodeURL(hex), expected) << hex;
}

TEST(DecodeURL, TakesUpTo4095Bytes) {
  const auto digits = [](std::size_t bytes) {
    std::string hex;
    for (std::size_t i = 0; i < bytes; ++i) hex += "61";
    return hex;
  };
  EXPECT_EQ(utils::decodeURL(digits(4095)), std::string(4095, 'a'));
  for (const std::size_t bytes : {4096U, 4097U, 10000U}) {
    LogCapture log(QDLOG_EXCP, 2);
    EXPECT_THROW(utils::decodeURL(digits(bytes)), QDException);
    EXPECT_THAT(log.lines(), ElementsAre("EXCP:ERR NET: convertHexStrNullToBin: Buffer too small"));
  }
}

TEST(HttpClient, RefusesOtherProtocolsAndBadFolders) {
  LogCapture log(QDLOG_ROOT, 5);
  HttpClient client;
  HttpClient::Headers headers;
  std::string body;
  for (const char* const url :
       {"file:///etc/passwd", "ftp://127.0.0.1/x", "gopher://127.0.0.1/x", ""}) {
    EXPECT_EQ(client.get(url, body, headers), -1) << url;
    EXPECT_EQ(client.head(url, headers), -1) << url;
  }
  EXPECT_EQ(log.lines()[0],
            "ROOT:ERR Request file:///etc/passwd failed : [1] -> Unsupported protocol");
  log.clear();
  EXPECT_EQ(client.download("http://127.0.0.1:1/x", "/nowhere/x", headers), -1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
