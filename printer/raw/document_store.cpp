#include "printer/raw/document_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "printer/shared/say.h"

namespace vlm::printer {
namespace {

std::string TakeDigest(EVP_MD_CTX* digest) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned size = 0;
    if (EVP_DigestFinal_ex(digest, value.data(), &size) != 1) throw std::runtime_error("SHA-256 failed");
    std::string text;
    for (unsigned i = 0; i < size; ++i)
        text += fmt::format("{:02x}", value[i]);
    return text;
}

}  // namespace

Document::Document(unsigned number, std::filesystem::path path, UniqueFd file)
    : number_(number), path_(std::move(path)), file_(std::move(file)), digest_(EVP_MD_CTX_new()) {
    if (!digest_ || EVP_DigestInit_ex(digest_.get(), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
}

bool Document::Write(const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(file_.Get(), data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            Complain("cannot write {}: {}", path_.string(), std::strerror(errno));
            return false;
        }
        const auto count = static_cast<std::size_t>(written);
        // Digested as stored, so that record and file agree even when the disk is full.
        if (EVP_DigestUpdate(digest_.get(), data, count) != 1) return false;
        bytes_ += count;
        data += count;
        size -= count;
    }
    return true;
}

DocumentStore::DocumentStore(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error && ::access(folder.c_str(), W_OK | X_OK) != 0) error.assign(errno, std::generic_category());
    if (error)
        throw std::runtime_error(fmt::format("cannot write to {}: {}", folder.string(), error.message()));
    folder_ = std::filesystem::absolute(folder);
}

Document DocumentStore::Open() {
    const std::scoped_lock lock(mutex_);
    for (;;) {
        const unsigned number = ++lastNumber_;
        std::filesystem::path path = folder_ / fmt::format("document-{:04}.prn", number);
        UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (file) return {number, std::move(path), std::move(file)};
        if (errno != EEXIST) {
            --lastNumber_;
            throw std::runtime_error(
                fmt::format("cannot create {}: {}", path.string(), std::strerror(errno)));
        }
    }
}

void DocumentStore::Finish(Document document, DocumentEnd end) {
    using namespace std::chrono;
    const DocumentRecord record{document.number_,
                                document.bytes_,
                                TakeDigest(document.digest_.get()),
                                end,
                                document.path_,
                                duration_cast<milliseconds>(steady_clock::now() - document.opened_).count()};
    document.file_.Reset();
    {
        const std::scoped_lock lock(mutex_);
        records_.emplace(record.number, record);
        if (records_.size() > kKeptRecords) records_.erase(records_.begin());
    }
    Say("document {}: {} bytes, sha256 {}, {}, {} ms, {}", record.number, record.bytes, record.sha256,
        NameIn(kDocumentEnds, record.end), record.milliseconds, record.file.string());
}

std::vector<DocumentRecord> DocumentStore::Records() const {
    const std::scoped_lock lock(mutex_);
    std::vector<DocumentRecord> all;
    all.reserve(records_.size());
    for (const auto& [number, record] : records_)
        all.push_back(record);
    return all;
}

}  // namespace vlm::printer
