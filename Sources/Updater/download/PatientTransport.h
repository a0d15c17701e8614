#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Updater/config/Settings.h"
#include "Updater/download/RunningDigests.h"
#include "Updater/net/HttpClient.h"
#include "fetch/Transfer.h"
#include "fetch/retry.h"

/// What the settings say of every request, all of which must have ended `deadline` from now on.
fetch::Options fetchOptionsOf(const FetchSettings& settings, std::chrono::seconds deadline);

/// Sends a run's requests as the settings file wants them: by its proxy, with its certificates, no
/// faster than its rate. What fails for a moment only is asked again until the deadline, which is
/// for all requests together; a download goes on where it was cut. One thread at a time.
class PatientTransport : public HttpTransport {
 public:
  /// The time begins to run. `servers`: their addresses, perhaps with user and password, which
  /// requests below `withoutPassword(server)` are then sent with; no record has them.
  PatientTransport(const FetchSettings& settings, std::vector<std::string> servers,
                   std::chrono::seconds deadline);

  /// As HttpClient's.
  void setWatcher(HttpClient::Watcher watcher) { watcher_ = std::move(watcher); }

  /// Empty: nobody is told.
  void setPauseListener(fetch::PauseListener listener) { onPause_ = std::move(listener); }

  /// Downloads into this folder, made by openPartialFolder, go on in a later run.
  void setPartialFolder(std::string folder) { partialFolder_ = std::move(folder); }

  /// Which digests downloads get; MD5 where nothing is said.
  void setDigests(RunningDigests::Kinds digests) { digests_ = digests; }

  int get(const std::string& url, std::string& body, Headers& headers) override;
  int head(const std::string& url, Headers& headers) override;

  int download(const std::string& url, int fd, const std::string& path, unsigned long long limit,
               Headers& headers) override;
  void setPatient(bool patient) override { patient_ = patient; }
  /// Half of the time that is left is such a download's own; more of it as long as it comes fast
  /// enough to end in time.
  void setSharing(bool sharing) override { sharing_ = sharing; }
  [[nodiscard]] bool wasResumed() const override { return resumed_; }
  /// Empty where it was not wanted.
  [[nodiscard]] std::string md5() const override { return md5_; }
  [[nodiscard]] std::string sha256() const override { return sha256_; }
  [[nodiscard]] bool wasTooLong() const override { return tooLong_; }
  void close() override { transfer_.reset(); }

  /// Why the latest request failed, for people; empty when it did not.
  [[nodiscard]] const std::string& failure() const { return failure_; }

 private:
  using Attempt = std::function<fetch::Result(fetch::Transfer&)>;

  fetch::Result persist(const std::string& url, const Attempt& attempt);
  fetch::Result resume(fetch::Transfer& transfer, class PartialFile& file,
                       const fetch::Request& whole);
  bool watch(std::uint64_t expected) noexcept;
  [[nodiscard]] bool hasHadItsShare() const;
  [[nodiscard]] std::string addressOf(const std::string& url) const;
  [[nodiscard]] std::chrono::milliseconds timeLeft() const;
  int judge(const std::string& url, const fetch::Result& result, Headers& headers);

  fetch::Options options_;
  std::vector<std::string> servers_;
  std::string partialFolder_;
  HttpClient::Watcher watcher_;
  fetch::PauseListener onPause_;
  std::unique_ptr<fetch::Transfer> transfer_;
  std::minstd_rand random_{std::random_device{}()};

  bool patient_ = true;
  bool sharing_ = false;
  bool resumed_ = false;
  RunningDigests::Kinds digests_;
  const class PartialFile* file_ = nullptr;      ///< that is being downloaded
  std::uint64_t wanted_ = 0;                     ///< its bytes
  std::uint64_t begunAt_ = 0;                    ///< those that were there when the download
  std::chrono::steady_clock::time_point begun_;  ///< was begun
  std::uint64_t resumedAt_ = 0;
  std::uint64_t lastTenth_ = 0;
  std::string md5_;
  std::string sha256_;
  bool tooLong_ = false;
  std::string failure_;
};
