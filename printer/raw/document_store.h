// The printer's output tray: each document becomes one file of the store's folder, with its size and SHA-256.
//
// A document is opened, written by one thread, and finished. Finish makes it visible in Records() and prints
// one line; by then its file holds every byte. Several documents may be under way at once; the
// store may be used from any thread, a Document by one thread at a time.
#pragma once

#include <openssl/evp.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "printer/net/unique_fd.h"
#include "printer/shared/name_table.h"

namespace vlm::printer {

enum class DocumentEnd {
    kComplete,        // the host said so
    kConnectionLost,  // reset or broken before the host had finished
    kFaultReset,      // the printer was told to reset the connection
    kTooLarge,        // over the limit for one document
    kStoreFailed,     // the file could not be written
    kStopped,         // the printer ended
};

inline constexpr NameTable<DocumentEnd, 6> kDocumentEnds{{
    {"complete", DocumentEnd::kComplete},
    {"connection lost", DocumentEnd::kConnectionLost},
    {"reset by fault", DocumentEnd::kFaultReset},
    {"over the size limit", DocumentEnd::kTooLarge},
    {"not storable", DocumentEnd::kStoreFailed},
    {"printer stopped", DocumentEnd::kStopped},
}};

struct DocumentRecord {
    unsigned number = 0;
    std::uint64_t bytes = 0;
    std::string sha256;  // lower-case hexadecimal, over the bytes that were stored
    DocumentEnd end = DocumentEnd::kComplete;
    std::filesystem::path file;
    std::int64_t milliseconds = 0;  // from its opening to its end
};

class DocumentStore;

// A document under way. One that goes away unfinished leaves its file and no record.
class Document {
 public:
    std::uint64_t Bytes() const { return bytes_; }
    bool Write(const char* data,
               std::size_t size);  // false when the file cannot take it; the reason goes to stderr

 private:
    friend class DocumentStore;
    struct FreeDigest {
        void operator()(EVP_MD_CTX* digest) const { EVP_MD_CTX_free(digest); }
    };

    Document(unsigned number, std::filesystem::path path, UniqueFd file);  // throws if OpenSSL has no SHA-256

    unsigned number_;
    std::filesystem::path path_;
    UniqueFd file_;
    std::unique_ptr<EVP_MD_CTX, FreeDigest> digest_;
    std::uint64_t bytes_ = 0;
    std::chrono::steady_clock::time_point opened_ = std::chrono::steady_clock::now();
};

class DocumentStore {
 public:
    // Makes the folder if need be. Throws std::runtime_error with one line when it cannot be written.
    explicit DocumentStore(const std::filesystem::path& folder);

    // A fresh file with the next free number; files that are already there are never overwritten.
    // Throws std::runtime_error.
    Document Open();
    void Finish(Document document, DocumentEnd end);

    // By number. The last kKeptRecords documents; the files of older ones stay.
    std::vector<DocumentRecord> Records() const;

    static constexpr std::size_t kKeptRecords = 10'000;

 private:
    std::filesystem::path folder_;
    mutable std::mutex mutex_;
    unsigned lastNumber_ = 0;
    std::map<unsigned, DocumentRecord> records_;
};

}  // namespace vlm::printer
