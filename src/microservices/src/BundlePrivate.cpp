#include "BundlePrivate.h"

#include "BundleContextPrivate.h"
#include "FrameworkCore.h"

#include <stdexcept>

namespace cppmicroservices {

using foundation::core::MutexLock;

BundlePrivate::BundlePrivate(FrameworkCore& framework, long id, std::string location,
                             std::string symbolicName, AnyMap headers)
    : m_framework(framework), m_id(id), m_location(std::move(location)),
      m_symbolicName(std::move(symbolicName)), m_headers(std::move(headers)) {}

BundlePrivate::~BundlePrivate() = default;

std::shared_ptr<BundleContextPrivate> BundlePrivate::context() const {
    const MutexLock lock(m_mutex);
    return m_context;
}

Bundle BundlePrivate::handle() {
    return Bundle(shared_from_this());
}

std::shared_ptr<const SharedLibrary> BundlePrivate::library() const {
    return nullptr;
}

std::shared_ptr<const SharedLibrary> BundlePrivate::loadLibrary() {
    throw std::logic_error("the framework has no library to load");
}

std::shared_ptr<BundleContextPrivate> BundlePrivate::openContext() {
    auto context = std::make_shared<BundleContextPrivate>(shared_from_this());
    const MutexLock lock(m_mutex);
    m_context = context;
    return context;
}

void BundlePrivate::closeContext() noexcept {
    const MutexLock lock(m_mutex);
    if (!m_context)
        return;
    m_context->invalidate();
    m_closedContexts.push_back(std::move(m_context));
    m_context.reset();
}

} // namespace cppmicroservices
