#include "tuf/key.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <optional>

#include "tuf/Error.h"
#include "tuf/digest.h"

namespace tuf {
namespace {

constexpr int kMinRsaBits = 2048;

/// OpenSSL would ask the terminal for the passphrase of an encrypted PEM text.
int noPassphrase(char*, int, int, void*) { return 0; }

KeyPtr loadEd25519(const std::string& digits) {
  const std::optional<std::string> bytes = fromHex(digits);
  if (!bytes) return nullptr;
  return KeyPtr(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                            reinterpret_cast<const unsigned char*>(bytes->data()),
                                            bytes->size()));
}

KeyPtr loadPem(const std::string& text) {
  const OpenSslPtr<BIO> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  return KeyPtr(bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, noPassphrase, nullptr) : nullptr);
}

bool isP256(const EVP_PKEY* key) {
  std::array<char, 32> name{};
  return EVP_PKEY_get_base_id(key) == EVP_PKEY_EC &&
         EVP_PKEY_get_group_name(key, name.data(), name.size(), nullptr) == 1 &&
         std::string_view(name.data()) == "prime256v1";
}

bool isLongRsa(const EVP_PKEY* key) {
  return EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_get_bits(key) >= kMinRsaBits;
}

const std::string& textMember(const Json& object, const char* name) {
  const auto member = object.is_object() ? object.find(name) : object.end();
  if (member == object.end() || !member->is_string()) {
    throw Error(ErrorKind::Malformed, std::string("A key has no text as ") + name);
  }
  return member->get_ref<const std::string&>();
}

}  // namespace

Key keyFromJson(const Json& json) {
  Key key{textMember(json, "keytype"), textMember(json, "scheme"), {}};
  const auto value = json.find("keyval");
  if (value == json.end() || !value->is_object()) {
    throw Error(ErrorKind::Malformed, "A key has no object as keyval");
  }
  if (value->contains("public")) key.publicKey = textMember(*value, "public");
  return key;
}

Json toJson(const Key& key) {
  return {{"keytype", key.type}, {"scheme", key.scheme}, {"keyval", {{"public", key.publicKey}}}};
}

std::string keyId(const Key& key) { return sha256Hex(canonicalJson(toJson(key))); }

KeyPtr loadKey(const Key& key) {
  KeyPtr loaded;
  if (key.scheme == "ed25519" && key.type == "ed25519") {
    loaded = loadEd25519(key.publicKey);
  } else if (key.scheme == "ecdsa-sha2-nistp256" &&
             (key.type == "ecdsa" || key.type == "ecdsa-sha2-nistp256")) {
    loaded = loadPem(key.publicKey);
    if (loaded && !isP256(loaded.get())) loaded.reset();
  } else if (key.scheme == "rsassa-pss-sha256" && key.type == "rsa") {
    loaded = loadPem(key.publicKey);
    if (loaded && !isLongRsa(loaded.get())) loaded.reset();
  }
  ERR_clear_error();
  return loaded;
}

bool isSignature(EVP_PKEY* key, std::string_view message, std::string_view signature) {
  const auto bytes = [](std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
  };
  const OpenSslPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
  const int kind = EVP_PKEY_get_base_id(key);
  EVP_PKEY_CTX* options = nullptr;  // the context's own
  bool ok = context && EVP_DigestVerifyInit(context.get(), &options,
                                            kind == EVP_PKEY_ED25519 ? nullptr : EVP_sha256(),
                                            nullptr, key) == 1;
  if (kind == EVP_PKEY_RSA) {
    ok = ok && EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(options, RSA_PSS_SALTLEN_AUTO) == 1;
  }
  ok = ok && EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(message),
                              message.size()) == 1;
  ERR_clear_error();
  return ok;
}

}  // namespace tuf
