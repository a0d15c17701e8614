#include "tufrepo/keyFile.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"
#include "tuf/Error.h"

namespace tufrepo {
namespace {

constexpr std::size_t kMaxKeyFile = std::size_t{64} << 10;

struct Free {
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }
  void operator()(PKCS8_PRIV_KEY_INFO* info) const noexcept { PKCS8_PRIV_KEY_INFO_free(info); }
  void operator()(X509_SIG* sealed) const noexcept { X509_SIG_free(sealed); }
  void operator()(X509_ALGOR* algorithm) const noexcept { X509_ALGOR_free(algorithm); }
};
template <typename T>
using Ptr = std::unique_ptr<T, Free>;

[[noreturn]] void fail(const std::string& text) {
  ERR_clear_error();
  throw std::runtime_error(text);
}

/// What `write` puts into a PEM text.
template <typename Write>
std::string pemOf(const Write& write) {
  const Ptr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || write(bio.get()) != 1) fail("Cannot write a key");
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

Ptr<BIO> reading(const std::string& text) {
  return Ptr<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string readKeyFile(const std::string& file, mode_t forbidden) {
  const ScopedFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) fail("Cannot read the key " + file + ": " + std::generic_category().message(errno));
  struct stat info {};
  std::string text;
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
      osal_readAll(fd.get(), text, kMaxKeyFile) != 0) {
    fail("The key " + file + " is no PEM file");
  }
  if ((info.st_mode & forbidden) != 0) {
    fail("The private key " + file + " is open to others: chmod 600 it");
  }
  return text;
}

/// For the PEM reader, which would ask the terminal by itself.
struct Asking {
  const AskPassphrase& ask;
  const std::string& file;
  std::exception_ptr thrown{};
};

int givePassphrase(char* buffer, int size, int, void* user) noexcept {
  Asking& asking = *static_cast<Asking*>(user);
  try {
    std::string passphrase = asking.ask(asking.file);
    const auto length = static_cast<int>(passphrase.size());
    if (length <= size) passphrase.copy(buffer, passphrase.size());
    OPENSSL_cleanse(passphrase.data(), passphrase.size());
    return length <= size ? length : -1;
  } catch (...) {
    asking.thrown = std::current_exception();
    return -1;
  }
}

tuf::PrivateKey taken(tuf::KeyPtr key, const std::string& file) {
  try {
    return tuf::PrivateKey(std::move(key));
  } catch (const tuf::Error& e) {
    fail(file + ": " + e.what());
  }
}

}  // namespace

std::string privatePem(const tuf::PrivateKey& key, const std::string& passphrase) {
  const Ptr<PKCS8_PRIV_KEY_INFO> info(EVP_PKEY2PKCS8(key.get()));
  if (!info) fail("Cannot write a key");
  if (passphrase.empty()) {
    return pemOf([&](BIO* bio) { return PEM_write_bio_PKCS8_PRIV_KEY_INFO(bio, info.get()); });
  }
  constexpr std::uint64_t kCost = 1 << 14;
  constexpr std::uint64_t kBlock = 8;
  Ptr<X509_ALGOR> algorithm(
      PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, 0, nullptr, kCost, kBlock, 1));
  if (!algorithm) fail("Cannot encrypt a key");
  const Ptr<X509_SIG> sealed(PKCS8_set0_pbe(passphrase.data(), static_cast<int>(passphrase.size()),
                                            info.get(), algorithm.get()));
  if (!sealed) fail("Cannot encrypt a key");
  (void)algorithm.release();  // the sealed key's own
  return pemOf([&](BIO* bio) { return PEM_write_bio_PKCS8(bio, sealed.get()); });
}

std::string publicPem(const tuf::PrivateKey& key) {
  return pemOf([&](BIO* bio) { return PEM_write_bio_PUBKEY(bio, key.get()); });
}

tuf::PrivateKey readPrivateKey(const std::string& file, const AskPassphrase& ask) {
  constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
  std::string text = readKeyFile(file, kOthers);
  Asking asking{ask, file};
  tuf::KeyPtr key(PEM_read_bio_PrivateKey(reading(text).get(), nullptr, &givePassphrase, &asking));
  OPENSSL_cleanse(text.data(), text.size());
  if (asking.thrown) {
    ERR_clear_error();
    std::rethrow_exception(asking.thrown);
  }
  if (!key) fail("The key " + file + " cannot be read: no PEM private key, or a wrong passphrase");
  return taken(std::move(key), file);
}

tuf::Key readPublicKey(const std::string& file) {
  const std::string text = readKeyFile(file, 0);
  tuf::KeyPtr key(PEM_read_bio_PUBKEY(reading(text).get(), nullptr, nullptr, nullptr));
  if (!key) fail("The key " + file + " is no PEM public key");
  return taken(std::move(key), file).publicKey();  // only its public part is looked at
}

bool hasPrivateKey(std::string_view text) {
  return text.find("PRIVATE KEY-----") != std::string_view::npos;
}

}  // namespace tufrepo
