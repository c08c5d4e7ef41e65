#pragma once

#include <foundation/log/Export.h>
#include <foundation/log/severity.h>

#include <memory>
#include <string>
#include <vector>

namespace foundation::log {

struct CollectedRecord {
    std::string channel;
    severity level = severity::info;
    /// The number of function scopes open around it on its thread.
    unsigned indent = 0;
    /// The record's own text, without channel, time and indentation.
    std::string text;

    friend bool operator==(const CollectedRecord&, const CollectedRecord&) = default;
};

/// Collects the records of all threads while it lives, whatever goes to standard error. For tests, and for
/// hosts that show records themselves.
class KXFOUNDATION_LOG_API ScopedRecordCollector {
public:
    /// Switches the channels on up to `level`; selection as for enable().
    explicit ScopedRecordCollector(severity level = severity::debug, std::vector<std::string> channels = {});
    ~ScopedRecordCollector();

    ScopedRecordCollector(const ScopedRecordCollector&) = delete;
    ScopedRecordCollector& operator=(const ScopedRecordCollector&) = delete;

    /// What was collected so far, in the order in which the records were made. Threads: any.
    std::vector<CollectedRecord> records() const;
    /// The texts alone.
    std::vector<std::string> texts() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace foundation::log
