#include "tuf/digest.h"

#include <array>
#include <boost/algorithm/hex.hpp>
#include <iterator>
#include <new>

#include "tuf/Error.h"

namespace tuf {
namespace {

const EVP_MD* knownAlgorithm(const std::string& name) {
  if (name == "sha256") return EVP_sha256();
  if (name == "sha512") return EVP_sha512();
  return nullptr;
}

std::string_view asText(const unsigned char* bytes, unsigned int size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace

std::string toHex(std::string_view bytes) {
  std::string digits;
  digits.reserve(2 * bytes.size());
  boost::algorithm::hex_lower(bytes.begin(), bytes.end(), std::back_inserter(digits));
  return digits;
}

std::optional<std::string> fromHex(std::string_view digits) try {
  std::string bytes;
  bytes.reserve(digits.size() / 2);
  boost::algorithm::unhex(digits.begin(), digits.end(), std::back_inserter(bytes));
  return bytes;
} catch (const boost::algorithm::hex_decode_error&) {
  return std::nullopt;
}

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), value.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();  // the only cause: the algorithm is always there
  }
  return toHex(asText(value.data(), size));
}

FileCheck::FileCheck(std::optional<std::uint64_t> length, const Hashes& hashes) : length_(length) {
  for (const auto& [algorithm, expected] : hashes) {
    const EVP_MD* const digest = knownAlgorithm(algorithm);
    if (digest == nullptr) continue;
    Running running{algorithm, expected, decltype(Running::context)(EVP_MD_CTX_new())};
    if (!running.context || EVP_DigestInit_ex(running.context.get(), digest, nullptr) != 1) {
      throw std::bad_alloc();
    }
    running_.push_back(std::move(running));
  }
  if (running_.empty() && !hashes.empty()) {
    throw Error(ErrorKind::Mismatch, "Only hashes of unknown algorithms are stated");
  }
}

void FileCheck::update(std::string_view bytes) {
  seen_ += bytes.size();
  for (const Running& running : running_) {
    EVP_DigestUpdate(running.context.get(), bytes.data(), bytes.size());
  }
}

void FileCheck::finish(const std::string& name) {
  if (length_ && *length_ != seen_) {
    throw Error(ErrorKind::Size,
                name + " has " + std::to_string(seen_) + " bytes, not " + std::to_string(*length_));
  }
  for (const Running& running : running_) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int size = 0;
    EVP_DigestFinal_ex(running.context.get(), value.data(), &size);
    if (fromHex(running.expected) != asText(value.data(), size)) {
      throw Error(ErrorKind::Mismatch, name + " has another " + running.algorithm);
    }
  }
}

}  // namespace tuf
