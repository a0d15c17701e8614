#include "tools/QDHash.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "Refusal.h"
#include "TempFolder.h"

namespace {

bool contextsFail = false;

}  // namespace

// The linker sends the calls of EVP_MD_CTX_new here (see --wrap in CMakeLists.txt).
extern "C" {

EVP_MD_CTX* __real_EVP_MD_CTX_new();
EVP_MD_CTX* __wrap_EVP_MD_CTX_new() { return contextsFail ? nullptr : __real_EVP_MD_CTX_new(); }

}  // extern "C"

namespace {

using Bytes = std::vector<unsigned char>;

const std::string kOfNothing = "D41D8CD98F00B204E9800998ECF8427E";
const std::string kOfAbc = "900150983CD24FB0D6963F7D28E17F72";

std::string hexOf(QDHashMD5& hash) {
  unsigned char out[33];
  hash.getHex(out);
  return reinterpret_cast<char*>(out);
}

std::string hashOfFile(const std::string& path) {
  unsigned char out[33];
  QDHashMD5::computeFileHexHash(bytes(path), out);
  return reinterpret_cast<char*>(out);
}

std::string hashOfBlock(const std::string& data) {
  QDHashMD5 hash;
  hash.update(data.data(), static_cast<unsigned int>(data.size()));
  return hexOf(hash);
}

TEST(QDHashMD5, ComputesTheDigestsOfTheStandard) {
  const struct {
    const char* text;
    std::string digest;
  } kCases[] = {
      {"", kOfNothing},
      {"a", "0CC175B9C0F1B6A831C399E269772661"},
      {"abc", kOfAbc},
      {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
      {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57EDF4A22BE3C955AC49DA2E2107B67A"},
  };
  for (const auto& [text, digest] : kCases) {
    SCOPED_TRACE(text);
    unsigned char out[33];
    EXPECT_EQ(QDHashMD5::hexHashForStr(bytes(text), out), 32);
    EXPECT_EQ(reinterpret_cast<char*>(out), digest);
    EXPECT_EQ(hashOfBlock(text), digest);
  }
}

TEST(QDHashMD5, IsFinishedByItsFirstReading) {
  QDHashMD5 hash;
  hash.update("a", 1);
  hash.update("bc", 2);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  const std::string badState = refused("Cannot update, bad state");
  EXPECT_EQ(refusal([&] { hash.update("d", 1); }), badState);
  EXPECT_EQ(refusal([&] { hash.updateWithNum(1); }), badState);
  EXPECT_EQ(refusal([&] { hash.updateWithStr(bytes("d")); }), badState);
  Bytes bin(16);
  hash.getBin(bin.data());
  unsigned char hex[33];
  QDHashMD5::convertBinToHex(bin.data(), hex);
  EXPECT_EQ(reinterpret_cast<char*>(hex), kOfAbc);
  hash.reset();
  EXPECT_EQ(hexOf(hash), kOfNothing);
}

TEST(QDHashMD5, FeedsNumbersBackwardsAndStringsWithTheirEnd) {
  const struct {
    unsigned long long number;
    std::string fed;
  } kCases[] = {
      {0, std::string("0\0", 2)},
      {12, std::string("21\0", 3)},
      {120, std::string("021\0", 4)},
      {18446744073709551615ULL, std::string("51615590737044764481\0", 21)},
  };
  for (const auto& [number, fed] : kCases) {
    SCOPED_TRACE(number);
    QDHashMD5 hash;
    hash.updateWithNum(number);
    EXPECT_EQ(hexOf(hash), hashOfBlock(fed));
  }
  QDHashMD5 hash;
  hash.updateWithStr(bytes("abc"));
  EXPECT_EQ(hexOf(hash), hashOfBlock(std::string("abc\0", 4)));
}

TEST(QDHashMD5, FoldsBigEndian) {
  Bytes digest(16);
  for (std::size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<unsigned char>(i);
  unsigned long long first = 0;
  unsigned long long second = 0;
  QDHashMD5::hashToU64(digest.data(), &first, &second);
  EXPECT_EQ(first, 0x0001020304050607U);
  EXPECT_EQ(second, 0x08090A0B0C0D0E0FU);
  QDHashMD5::hashToU64(digest.data(), nullptr, nullptr);

  QDHashMD5::computeHash("abc", 3, digest.data(), &first, &second);
  EXPECT_EQ(first, 0x900150983CD24FB0U);
  EXPECT_EQ(second, 0xD6963F7D28E17F72U);
  EXPECT_EQ(digest[0], 0x90);
  QDHashMD5::computeHash("abc", 3, digest.data(), nullptr, nullptr);
}

TEST(QDHashMD5, ReadsWholeDigestsOnly) {
  const struct {
    std::string hex;
    bool valid;
  } kCases[] = {
      {kOfAbc, true},
      {"900150983cd24fb0d6963f7d28e17f72", true},
      {kOfAbc + "  file", true},
      {kOfAbc.substr(0, 31), false},
      {kOfAbc.substr(0, 30), false},
      {kOfAbc.substr(0, 31) + "x", false},
      {"x" + kOfAbc, false},
      {"", false},
  };
  for (const auto& [hex, valid] : kCases) {
    SCOPED_TRACE(hex);
    const Bytes exact(hex.c_str(), hex.c_str() + hex.size() + 1);  // an overrun is detectable
    unsigned char bin[16] = {};
    EXPECT_EQ(QDHashMD5::convertHexToBin(exact.data(), bin), valid);
  }
}

TEST(QDHashMD5, HashesFilesOfAnySize) {
  const TempFolder folder;
  for (const std::size_t size :
       {0U, 1U, 4095U, 4096U, 4097U, 131071U, 131072U, 131073U, 1000000U}) {
    SCOPED_TRACE(size);
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * i / 7);
    writeFile(folder / "file", data);
    EXPECT_EQ(hashOfFile(folder / "file"), hashOfBlock(data));
  }
}

TEST(QDHashMD5, WhatCannotBeReadCountsAsEmpty) {
  const TempFolder folder;
  const LogCapture log("OSAL:9;EXCP:9;");
  const std::ptrdiff_t before = openDescriptors();
  EXPECT_EQ(hashOfFile(folder / "missing"), kOfNothing);
  EXPECT_EQ(hashOfFile(folder.path().string()), kOfNothing);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(log.lines().empty());
}

TEST(QDHashMD5, GivesZerosWhereMd5IsSwitchedOff) {
  QDHashMD5 hash;
  hash.update("abc", 3);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  EVP_default_properties_enable_fips(nullptr, 1);
  hash.reset();
  hash.update("abc", 3);
  const std::string digest = hexOf(hash);
  EVP_default_properties_enable_fips(nullptr, 0);
  EXPECT_EQ(digest, std::string(32, '0'));
  EXPECT_EQ(hashOfBlock("abc"), kOfAbc);
}

TEST(QDHashMD5, GivesZerosWithoutMemoryForItsContext) {
  contextsFail = true;
  QDHashMD5 hash;
  contextsFail = false;
  hash.update("abc", 3);
  EXPECT_EQ(hexOf(hash), std::string(32, '0'));
}

}  // namespace
