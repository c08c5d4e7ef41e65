#include <runtime/RuntimeTest.h>

#include <sstream>
#include <stdexcept>

namespace runtime {
namespace {

using bundle::Farewell;
using cppmicroservices::Bundle;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;

/// Handles of nothing, where runtimes differ.
class EmbeddedHandle : public RuntimeTest {};

TEST_F(EmbeddedHandle, NoRegistrationComesBeforeEveryOther) {
    const auto some = context().RegisterService<bundle::Witness>(std::make_shared<Diary>());
    const cppmicroservices::ServiceRegistration<bundle::Witness> none;
    EXPECT_TRUE(none < some);
    EXPECT_FALSE(some < none);
    EXPECT_FALSE(none < none);
}

TEST_F(EmbeddedHandle, AFrameworkMadeOfNoBundleIsNone) {
    Framework none{Bundle()};
    EXPECT_FALSE(none);
    EXPECT_THROW(none.Init(), std::invalid_argument);
    EXPECT_THROW(none.WaitForStop(std::chrono::milliseconds(1)), std::invalid_argument);
}

TEST_F(EmbeddedHandle, AReferenceToNothingHasNoProperties) {
    const cppmicroservices::ServiceReference<Farewell> none;
    EXPECT_TRUE(none.GetProperty("language").Empty());
    EXPECT_TRUE(none.GetPropertyKeys().empty());
    EXPECT_FALSE(none.GetBundle());
}

TEST_F(EmbeddedHandle, ABundleThatIsNoneHasAText) {
    std::ostringstream stream;
    stream << Bundle() << " " << FrameworkEvent::FRAMEWORK_STARTED << " " << FrameworkEvent::FRAMEWORK_ERROR
           << " " << FrameworkEvent::FRAMEWORK_WARNING << " " << FrameworkEvent::FRAMEWORK_INFO << " "
           << FrameworkEvent::FRAMEWORK_STOPPED << " " << FrameworkEvent::FRAMEWORK_STOPPED_UPDATE << " "
           << FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT;
    stream << " " << static_cast<FrameworkEvent::Type>(5) << " " << static_cast<Bundle::State>(3);
    EXPECT_EQ(stream.str(), "Bundle[] STARTED ERROR WARNING INFO STOPPED STOPPED_UPDATE WAIT_TIMEDOUT 5 3");
}

} // namespace
} // namespace runtime
