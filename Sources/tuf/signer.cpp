#include "tuf/signer.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <utility>

#include "tuf/Error.h"
#include "tuf/digest.h"

namespace tuf {
namespace {

[[noreturn]] void fail(const char* text) {
  ERR_clear_error();
  throw Error(ErrorKind::Storage, text);
}

std::string publicPem(EVP_PKEY* key) {
  const OpenSslPtr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || PEM_write_bio_PUBKEY(bio.get(), key) != 1) fail("Cannot write a public key");
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

std::string rawPublic(EVP_PKEY* key) {
  std::string bytes(32, '\0');
  std::size_t size = bytes.size();
  if (EVP_PKEY_get_raw_public_key(key, reinterpret_cast<unsigned char*>(bytes.data()), &size) !=
      1) {
    fail("Cannot read a public key");
  }
  return bytes;
}

Key publicPart(EVP_PKEY* key) {
  switch (EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_ED25519:
      return {"ed25519", "ed25519", toHex(rawPublic(key))};
    case EVP_PKEY_EC:
      return {"ecdsa", "ecdsa-sha2-nistp256", publicPem(key)};
    default:
      return {"rsa", "rsassa-pss-sha256", publicPem(key)};
  }
}

}  // namespace

PrivateKey PrivateKey::generateEd25519() {
  return PrivateKey(KeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")));
}

PrivateKey PrivateKey::generateEcdsa() {
  return PrivateKey(KeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")));
}

PrivateKey::PrivateKey(KeyPtr key) : key_(std::move(key)) {
  if (!key_) fail("Cannot make a key");
  public_ = publicPart(key_.get());
  if (!loadKey(public_)) {
    throw Error(ErrorKind::Malformed,
                "The key is neither Ed25519, ECDSA P-256 nor RSA from 2048 bits");
  }
  id_ = keyId(public_);
}

std::string PrivateKey::sign(std::string_view message) const {
  const int kind = EVP_PKEY_get_base_id(key_.get());
  const OpenSslPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
  EVP_PKEY_CTX* options = nullptr;  // the context's own
  bool ok = context && EVP_DigestSignInit(context.get(), &options,
                                          kind == EVP_PKEY_ED25519 ? nullptr : EVP_sha256(),
                                          nullptr, key_.get()) == 1;
  if (kind == EVP_PKEY_RSA) {
    ok = ok && EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(options, RSA_PSS_SALTLEN_DIGEST) == 1;
  }
  std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(key_.get())), '\0');
  std::size_t size = signature.size();
  ok = ok &&
       EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                      reinterpret_cast<const unsigned char*>(message.data()), message.size()) == 1;
  if (!ok) fail("Cannot sign");
  signature.resize(size);
  return signature;
}

std::string sign(const Json& content, const std::vector<PrivateKey>& keys) {
  const std::string canonical = canonicalJson(content);
  Json file = {{"signed", content}, {"signatures", Json::array()}};
  for (const PrivateKey& key : keys) {
    file["signatures"].push_back({{"keyid", key.id()}, {"sig", toHex(key.sign(canonical))}});
  }
  return file.dump();
}

}  // namespace tuf
