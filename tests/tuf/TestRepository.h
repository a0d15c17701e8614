#pragma once

#include <map>
#include <string>
#include <vector>

#include "tuf/Fetcher.h"
#include "tuf/signer.h"

/// A repository in memory, made and signed by the library itself, and the server in front of it.
///
/// It begins with the root in version 1, the other roles in version 5, expiring in 2099, and the
/// target "a" of the content "content of a"; "other/*" is delegated to the role "other".
class TestRepository : public tuf::Fetcher {
 public:
  TestRepository();

  std::map<std::string, tuf::Json> content;  ///< what is signed, by role
  std::map<std::string, std::vector<tuf::PrivateKey>> signers;
  std::map<std::string, std::string> files;  ///< by address: metadata below "r", targets below "t"
  bool withHashes = true;                    ///< in what the snapshot and the timestamp state

  /// Does one thing after the other, "set /timestamp/version 4; publish": see the source.
  void play(const std::string& script);

  /// Publishes everything but the root as it stands: targets roles, snapshot, timestamp.
  void publish();
  /// Publishes the next root, signed by the former root's keys and its own.
  void publishRoot();
  /// New versions of targets, snapshot and timestamp, published.
  void release();

  /// What was asked since the last call, without ".json" and with "#" for hashes.
  std::string asked();

  int fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) override;

  // What scripts are made of.
  void raise(const std::string& role);
  void rotate(const std::string& role);
  void addTarget(const std::string& role, const std::string& path);
  void delegate(const std::string& from, const std::string& to);
  void addSignature(const std::string& id, const std::string& digits);
  int statusOfMissing = 404;

 private:
  tuf::Json describe(const std::string& role);

  std::string requests_;
  std::vector<tuf::PrivateKey> formerRoot_;
};
