#pragma once

#include <support/ForwardingByteStream.h>
#include <support/ForwardingProvider.h>
#include <support/ProviderOperation.h>

#include <functional>
#include <memory>
#include <utility>

namespace kx::test {

/// Lets a test do something while another provider is at work on the files of this one: a function is called
/// before each opening of a stream and before what is done with it.
class HookedProvider final : public ForwardingProvider {
public:
    using Hook = std::function<void(ProviderOperation)>;

    using ForwardingProvider::ForwardingProvider;

    void callBefore(Hook hook) { *m_hook = std::move(hook); }
    /// `work` is done once, before the next call of this operation.
    void beforeNext(ProviderOperation operation, std::function<void()> work) {
        callBefore([operation, work = std::move(work), done = false](ProviderOperation called) mutable {
            if (called == operation && !std::exchange(done, true)) {
                work();
            }
        });
    }

protected:
    std::unique_ptr<provider::ByteStream>
    doOpenStream(const provider::StorageIRI& location,
                 const provider::ByteStreamOpenOptions& options) override {
        call(*m_hook, ProviderOperation::OpenStream);
        return std::make_unique<Stream>(target()->openStream(location, options), m_hook);
    }
    std::unique_ptr<provider::ByteStream> doOpenReadStream(const provider::StorageIRI& location) override {
        call(*m_hook, ProviderOperation::OpenReadStream);
        return std::make_unique<Stream>(target()->openReadStream(location), m_hook);
    }

private:
    static void call(const Hook& hook, ProviderOperation operation) {
        if (hook) {
            hook(operation);
        }
    }

    class Stream final : public ForwardingByteStream {
    public:
        Stream(std::unique_ptr<provider::ByteStream> target, std::shared_ptr<const Hook> hook)
            : ForwardingByteStream(std::move(target)), m_hook(std::move(hook)) {}

    private:
        std::int64_t doRead(char* buffer, std::int64_t count) override {
            call(*m_hook, ProviderOperation::StreamRead);
            return ForwardingByteStream::doRead(buffer, count);
        }
        std::int64_t doWrite(const char* buffer, std::int64_t count) override {
            call(*m_hook, ProviderOperation::StreamWrite);
            return ForwardingByteStream::doWrite(buffer, count);
        }
        void doClose() override {
            call(*m_hook, ProviderOperation::StreamClose);
            ForwardingByteStream::doClose();
        }

        const std::shared_ptr<const Hook> m_hook;
    };

    const std::shared_ptr<Hook> m_hook = std::make_shared<Hook>();
};

} // namespace kx::test
