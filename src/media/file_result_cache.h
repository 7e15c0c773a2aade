#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <iterator>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "media/bookmark.h"

namespace media {

// What was read: which file, as it stood then, and the one number asked of it beyond the
// file (a duration, a peak count; 0 when nothing was).
struct FileResultKey {
    FileIdentity file;
    double parameter = 0;
    friend auto operator<=>(const FileResultKey&, const FileResultKey&) = default;
};

// A bounded memory of results read from files, newest use kept longest, so that one file
// cut into many clips is read once. A changed file has another identity and is read
// again. Requests for a key whose read is under way wait for that read instead of
// repeating it. Any thread may call get() at once; `mutex_` guards every member below it.
template <typename Value>
class FileResultCache {
  public:
    using SizeOf = std::function<std::size_t(const Value&)>;

    FileResultCache(std::size_t maxEntries, std::size_t maxBytes, SizeOf sizeOf)
        : maxEntries_(maxEntries), maxBytes_(maxBytes), sizeOf_(std::move(sizeOf)) {}

    // The value kept under `key`; else what the read already under way yields; else the
    // result of `read()`, kept when `keep(value)` says it may stand for later requests.
    template <typename Read, typename Keep>
    Value get(const FileResultKey& key, Read read, Keep keep) {
        std::promise<Value> promise;
        {
            std::unique_lock lock(mutex_);
            if (auto found = index_.find(key); found != index_.end()) {
                entries_.splice(entries_.begin(), entries_, found->second);
                return found->second->value;
            }
            if (auto pending = reading_.find(key); pending != reading_.end()) {
                auto result = pending->second;
                lock.unlock();
                return result.get();
            }
            reading_.emplace(key, promise.get_future().share());
        }
        std::optional<Value> value;
        try {
            value.emplace(read());
        } catch (...) {
            // Waiters get the failure too, and the next request reads afresh.
            promise.set_exception(std::current_exception());
            std::lock_guard lock(mutex_);
            reading_.erase(key);
            throw;
        }
        bool kept = keep(*value);
        std::lock_guard lock(mutex_);
        if (kept) store(key, *value);
        promise.set_value(*value);
        reading_.erase(key);
        return std::move(*value);
    }

  private:
    struct Entry {
        FileResultKey key;
        Value value;
        std::size_t bytes = 0;
    };

    void store(const FileResultKey& key, const Value& value) {
        std::size_t bytes = sizeOf_(value);
        if (bytes > maxBytes_ || maxEntries_ == 0) return;
        entries_.push_front({key, value, bytes});
        index_[key] = entries_.begin();
        bytes_ += bytes;
        while (entries_.size() > maxEntries_ || bytes_ > maxBytes_) {
            bytes_ -= entries_.back().bytes;
            index_.erase(entries_.back().key);
            entries_.pop_back();
        }
    }

    const std::size_t maxEntries_;
    const std::size_t maxBytes_;
    const SizeOf sizeOf_;

    std::mutex mutex_;
    std::list<Entry> entries_;  // most recently used first
    std::map<FileResultKey, typename std::list<Entry>::iterator> index_;
    std::map<FileResultKey, std::shared_future<Value>> reading_;
    std::size_t bytes_ = 0;
};

}  // namespace media
