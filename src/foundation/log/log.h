#pragma once

/// The logging statements. All cost one atomic read while the logger is off, and evaluate none of their
/// operands.
///
///     std::int64_t Device::doWrite(const char* data, std::int64_t count) {
///         KX_LOG_FUNCTION_AS(scope, m_logger);
///         KX_LOG(m_logger) << " n=" << count;
///         KX_LOG_DEBUG(m_logger) << "Size before write: " << size();
///         return scope.wrote(m_file.write(data, count));
///     }

#include <foundation/log/FunctionScope.h>
#include <foundation/log/Record.h>
#include <foundation/log/basic_diagnostic_logger.h>
#include <foundation/log/severity.h>

#ifdef _MSC_VER
#define KX_LOG_SIGNATURE __FUNCSIG__
#else
#define KX_LOG_SIGNATURE __PRETTY_FUNCTION__
#endif

#define KX_LOG_JOIN_EXPANDED(a, b) a##b
#define KX_LOG_JOIN(a, b) KX_LOG_JOIN_EXPANDED(a, b)

/// Opens the record of the function that it stands in. `logger` is evaluated once.
#define KX_LOG_FUNCTION(logger) KX_LOG_FUNCTION_AS(KX_LOG_JOIN(kxLogScope, __LINE__), logger)

/// The same with a name for the scope, to tell its result: `return scope.wrote(n);`.
#define KX_LOG_FUNCTION_AS(scope, logger)                                                                    \
    ::foundation::log::FunctionScope scope((logger), KX_LOG_SIGNATURE, __FILE__, __LINE__)

/// A record of severity info: `KX_LOG(m_logger) << " path=" << path;`. `logger` is evaluated twice when
/// enabled.
#define KX_LOG(logger) KX_LOG_AT(logger, ::foundation::log::severity::info)
/// The same with severity debug.
#define KX_LOG_DEBUG(logger) KX_LOG_AT(logger, ::foundation::log::severity::debug)

#define KX_LOG_AT(logger, level)                                                                             \
    !(logger).enabled(level)                                                                                 \
        ? static_cast<void>(0)                                                                               \
        : ::foundation::log::detail::Discard() & ::foundation::log::Record((logger), (level))
