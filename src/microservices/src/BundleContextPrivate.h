#pragma once

#include <cppmicroservices/BundleContext.h>

#include <atomic>
#include <memory>

namespace cppmicroservices {

class BundlePrivate;
class FrameworkCore;

/// A bundle context behind its handles, of which the bundle's own code keeps a plain pointer. It owns neither
/// the bundle nor the framework: a component that keeps its context must not keep them alive.
class BundleContextPrivate : public std::enable_shared_from_this<BundleContextPrivate> {
public:
    explicit BundleContextPrivate(const std::shared_ptr<BundlePrivate>& bundle);

    bool isValid() const noexcept { return m_valid; }
    void invalidate() noexcept { m_valid = false; }
    BundleContext handle();

    /// Keeps the framework and the bundle for the length of one operation. The framework goes last.
    struct Access {
        std::shared_ptr<FrameworkCore> framework;
        std::shared_ptr<BundlePrivate> bundle;
    };
    /// Throws IllegalStateException if the context is not valid.
    Access access() const;

private:
    const std::weak_ptr<FrameworkCore> m_framework;
    const std::weak_ptr<BundlePrivate> m_bundle;
    // Read without a lock by every operation; an operation that began before the bundle stopped may go on.
    std::atomic<bool> m_valid{true};
};

} // namespace cppmicroservices
