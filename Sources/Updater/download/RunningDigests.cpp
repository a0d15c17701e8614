#include "Updater/download/RunningDigests.h"

#include <array>

#include "ground/osal_hex.h"

RunningDigests::RunningDigests(bool withSha256)
    : md5_(EVP_md5()), sha256_(withSha256 ? EVP_sha256() : nullptr) {}

void RunningDigests::reset() {
  md5_.reset();
  sha256_.reset();
}

void RunningDigests::update(std::string_view bytes) {
  md5_.update(bytes);
  sha256_.update(bytes);
}

std::string RunningDigests::md5() { return md5_.finish(); }

std::string RunningDigests::sha256() { return sha256_.finish(); }

void RunningDigests::Digest::reset() {
  runs_ = kind_ != nullptr && context_ != nullptr &&
          EVP_DigestInit_ex(context_.get(), kind_, nullptr) == 1;
}

void RunningDigests::Digest::update(std::string_view bytes) {
  runs_ = runs_ && EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

std::string RunningDigests::Digest::finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int size = 0;
  if (!runs_ || EVP_DigestFinal_ex(context_.get(), bytes.data(), &size) != 1) return {};
  runs_ = false;
  std::string digits(std::size_t{2} * size, '0');
  osal_writeHex(bytes.data(), size, true, digits.data());
  return digits;
}
