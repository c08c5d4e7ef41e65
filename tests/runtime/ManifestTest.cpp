#include <runtime/RuntimeTest.h>

#include <cppmicroservices/AnyMap.h>

#include <stdexcept>

namespace runtime {
namespace {

using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;

class ManifestOfABundle : public RuntimeTest {
protected:
    const cppmicroservices::Bundle m_bundle = installGreeting();
    const AnyMap& m_headers = m_bundle.GetHeaders();
};

TEST_F(ManifestOfABundle, IsReadAlongAPathOfKeys) {
    EXPECT_EQ(m_headers.AtCompoundKey("test.name").ToString(), "greeting");
    EXPECT_EQ(m_headers.AtCompoundKey("test.list.1").ToString(), "two");
    EXPECT_EQ(any_cast<double>(m_headers.AtCompoundKey("test.list.-1")), 2.5);
    EXPECT_EQ(m_headers.AtCompoundKey("scr.components.0.service.interfaces.1").ToString(),
              "runtime::bundle::Farewell");
}

TEST_F(ManifestOfABundle, APathThatLeadsNowhereIsToldApart) {
    EXPECT_THROW(m_headers.AtCompoundKey("test.missing"), std::out_of_range);
    EXPECT_THROW(m_headers.AtCompoundKey("test.list.9"), std::out_of_range);
    EXPECT_THROW(m_headers.AtCompoundKey("test.list.first"), std::invalid_argument);
    EXPECT_THROW(m_headers.AtCompoundKey("test.name.x"), std::invalid_argument);
    EXPECT_EQ(any_cast<int>(m_headers.AtCompoundKey("test.name.x", 7)), 7);
}

TEST_F(ManifestOfABundle, KeepsNumbersThatNeedMoreThanAnInt) {
    EXPECT_EQ(any_cast<long long>(m_headers.AtCompoundKey("test.large")), 5000000000LL);
}

TEST_F(ManifestOfABundle, IgnoresTheCaseOfKeys) {
    EXPECT_EQ(m_headers.at("Bundle.Symbolic_Name").ToString(), "test_greeting");
}

TEST_F(ManifestOfABundle, HasATextForPeople) {
    EXPECT_EQ(m_headers.at("test").ToString(),
              "{large: 5000000000, list: [1, two, true, 2.5], name: greeting}");
}

} // namespace
} // namespace runtime
