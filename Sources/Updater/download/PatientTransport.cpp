#include "Updater/download/PatientTransport.h"

#include <algorithm>
#include <system_error>

#include "Updater/download/PartialFile.h"
#include "Updater/download/contentRange.h"
#include "fetch/address.h"
#include "logging/QDLog.h"

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr long kReceiveBuffer = 128L * 1024;
constexpr std::uint64_t kSmallestBuffer = std::uint64_t{16} * 1024;

std::string describe(const fetch::Result& result) {
  if (result.error == CURLE_OK) return "[" + std::to_string(result.status) + "]";
  return "[" + std::to_string(static_cast<int>(result.error)) + "] -> " + result.message;
}

}  // namespace

fetch::Options fetchOptionsOf(const FetchSettings& settings, std::chrono::seconds deadline) {
  fetch::Options options;
  options.deadline = Clock::now() + deadline;
  options.maxRedirects = 50;
  options.verify = !settings.ca.empty();
  if (settings.ca != "system") options.ca = settings.ca;
  options.clientCert = settings.clientCert;
  options.clientKey = settings.clientKey;
  options.proxy = settings.proxy;
  options.noProxy = settings.noProxy;
  options.rate = settings.rate;
  options.userAgent = "Updater/1.0.0";
  // A limited download comes in small pieces, so that it keeps to its rate at every moment.
  options.receiveBuffer =
      settings.rate == 0 ? kReceiveBuffer
                         : static_cast<long>(std::clamp<std::uint64_t>(
                               settings.rate / 16, kSmallestBuffer, std::uint64_t{kReceiveBuffer}));
  return options;
}

PatientTransport::PatientTransport(const FetchSettings& settings, std::vector<std::string> servers,
                                   std::chrono::seconds deadline)
    : options_(fetchOptionsOf(settings, deadline)), servers_(std::move(servers)) {
  options_.watcher = [this](std::uint64_t /*bytes*/, std::uint64_t expected) {
    return watch(expected);
  };
}

int PatientTransport::get(const std::string& url, std::string& body, Headers& headers) {
  const fetch::Request request{.url = addressOf(url), .maxBytes = HttpClient::kMaxBody};
  const fetch::Result result = persist(url, [&](fetch::Transfer& transfer) {
    body.clear();
    return transfer.perform(request, {}, [&body](std::string_view bytes) { body += bytes; });
  });
  return judge(url, result, headers);
}

int PatientTransport::head(const std::string& url, Headers& headers) {
  const fetch::Request request{.url = addressOf(url), .headOnly = true};
  const fetch::Result result = persist(url, [&](fetch::Transfer& transfer) {
    return transfer.perform(request, {}, [](std::string_view) {});
  });
  return judge(url, result, headers);
}

int PatientTransport::download(const std::string& url, int fd, const std::string& path,
                               unsigned long long limit, Headers& headers) try {
  const bool kept = !partialFolder_.empty() && path.starts_with(partialFolder_ + "/");
  tooLong_ = resumed_ = false;
  PartialFile file(fd, path, kept, digests_);
  file.resume(url);
  if (file.size() > 0) QDLOG(ROOT, NFY, "Resuming the download at " << file.size() << " bytes");
  const fetch::Request whole{.url = addressOf(url), .maxBytes = limit};
  file_ = &file;
  wanted_ = limit;
  begunAt_ = file.size();
  begun_ = Clock::now();
  const fetch::Result result =
      persist(url, [&](fetch::Transfer& transfer) { return resume(transfer, file, whole); });
  file_ = nullptr;
  tooLong_ = result.tooLarge;
  resumed_ = file.isTakenUp();
  file.flush();
  md5_ = file.digests().md5();
  sha256_ = file.digests().sha256();
  return judge(url, result, headers);
} catch (const std::system_error& e) {
  file_ = nullptr;
  failure_ = "cannot write " + path + ": " + e.code().message();
  QDLOG(ROOT, ERR, "Cannot write " << path << " : " << e.code().message());
  return -1;
}

/// One request for what is missing; a second one where the server has another file by now.
fetch::Result PatientTransport::resume(fetch::Transfer& transfer, PartialFile& file,
                                       const fetch::Request& whole) {
  fetch::Result result;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!file.canContinue() || file.size() > whole.maxBytes) file.restart();
    fetch::Request request = whole;
    request.from = file.size();
    if (request.from > 0) request.ifRange = file.validator();
    resumedAt_ = request.from;
    bool refused = false;
    result = transfer.perform(
        request,
        [&](const fetch::Result& head) {
          refused = !file.begin(head);
          resumedAt_ = file.size();
          request.maxBytes = whole.maxBytes - file.size();
          return !refused;
        },
        [&](std::string_view bytes) { file.write(bytes); });
    file.flush();
    if (result.tooLarge) file.restart();
    // All of it was there already.
    const auto range =
        result.status == 416 ? result.headers.find("content-range") : result.headers.end();
    if (range != result.headers.end() && request.from > 0) {
      const auto parsed = parseContentRange(range->second);
      if (parsed && parsed->total == file.size()) {
        result.status = 200;
        return result;
      }
    }
    const bool otherFile = result.error == CURLE_OK && request.from > 0 &&
                           (result.status == 416 || result.status == 412);
    if (!refused && !otherFile) break;
    file.restart();
  }
  if (result.error == CURLE_OK && result.status == 206) result.status = 200;
  return result;
}

fetch::Result PatientTransport::persist(const std::string& url, const Attempt& attempt) {
  unsigned int failures = 0;
  for (;;) {
    if (transfer_ == nullptr) transfer_ = std::make_unique<fetch::Transfer>(options_);
    fetch::Result result = attempt(*transfer_);
    if (result.error != CURLE_OK && hasHadItsShare()) {
      result.message = "too slow, " + std::to_string(file_->size()) + " bytes by now";
      return result;
    }
    if (!patient_ || !fetch::isTransient(result)) return result;
    failures = result.bytes > 0 ? 1 : failures + 1;  // where something came it is worth more
    const double random = std::uniform_real_distribution<>(0, 1)(random_);
    const auto time = fetch::pauseAfter(failures, result.retryAfter, random, timeLeft());
    if (!time) return result;
    QDLOG(ROOT, WRN,
          "Request " << url << " failed : " << describe(result) << " - again in " << time->count()
                     << " ms");
    if (onPause_) onPause_(fetch::reasonOf(result), *time);
    const auto goesOn = [this] { return (!watcher_ || watcher_(0)) && !hasHadItsShare(); };
    if (!fetch::pauseFor(*time, goesOn)) return result;
  }
}

/// What libcurl counts may be the page of an error.
bool PatientTransport::watch(std::uint64_t expected) noexcept {
  const std::uint64_t come = file_ != nullptr ? file_->size() : 0;
  if (come > resumedAt_ && expected > 0) {
    const std::uint64_t tenth = come * 10 / (resumedAt_ + expected);
    try {
      if (tenth > lastTenth_) QDLOG(ROOT, NFY, "Loading " << tenth * 10 << "%");
    } catch (...) {
      // A line that can't be logged must not end the transfer.
    }
    lastTenth_ = tenth;
  }
  return (!watcher_ || watcher_(come)) && !hasHadItsShare();
}

bool PatientTransport::hasHadItsShare() const {
  if (!sharing_ || file_ == nullptr) return false;
  const auto taken = std::chrono::duration_cast<milliseconds>(Clock::now() - begun_);
  const std::uint64_t size = std::min(file_->size(), wanted_);
  return !fetch::mayGoOn(taken, timeLeft(), size - std::min(size, begunAt_), wanted_ - size);
}

std::string PatientTransport::addressOf(const std::string& url) const {
  for (const std::string& server : servers_) {
    const std::string shown = withoutPassword(server);
    if (url.starts_with(shown + "/")) return server + url.substr(shown.size());
  }
  return url;
}

milliseconds PatientTransport::timeLeft() const {
  return std::chrono::duration_cast<milliseconds>(*options_.deadline - Clock::now());
}

int PatientTransport::judge(const std::string& url, const fetch::Result& result, Headers& headers) {
  headers = result.headers;
  failure_.clear();
  if (result.error == CURLE_OK && result.status == 200) return 0;
  failure_ = "cannot get " + url + ": " + fetch::reasonOf(result);
  QDLOG(ROOT, ERR, "Request " << url << " failed : " << describe(result));
  return result.error == CURLE_OK && result.status != 0 ? static_cast<int>(result.status) : -1;
}
