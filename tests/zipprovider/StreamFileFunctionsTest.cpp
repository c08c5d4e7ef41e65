#include "ScriptedStream.h"

#include <storage/zipprovider/src/StreamFileFunctions.h>

#include <foundation/storage/provider/ByteStreamDevice.h>

#include <boost/iostreams/stream.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <ios>
#include <limits>
#include <memory>
#include <string>

namespace {

using foundation::storage::provider::ByteStreamDevice;
using kx::test::ScriptedStream;
using kx::test::StreamScript;

using Stream = boost::iostreams::stream<ByteStreamDevice>;
using Functions = storage::zipprovider::StreamFileFunctions<Stream>;

constexpr uLong failed = 0xFFFFFFFF;
constexpr auto allOnes = ~ZPOS64_T{0};

class StreamFileFunctions : public testing::Test {
protected:
    StreamFileFunctions() {
        m_script->bytes = "0123456789";
        m_stream.open(ByteStreamDevice(std::make_unique<ScriptedStream>(m_script)), -1, -1);
    }

    uLong read(uLong size) { return Functions::read(nullptr, &m_stream, m_buffer, size); }
    std::string text(uLong size) const { return std::string(m_buffer, size); }
    ZPOS64_T tell() { return Functions::tell(nullptr, &m_stream); }
    long seek(std::int64_t offset, int origin) {
        return Functions::seek(nullptr, &m_stream, static_cast<ZPOS64_T>(offset), origin);
    }
    int error() { return Functions::error(nullptr, &m_stream); }

    std::shared_ptr<StreamScript> m_script = std::make_shared<StreamScript>();
    Stream m_stream;
    char m_buffer[64] = {};
};

/// Tables of some versions of minizip have a place for it.
template <typename Table>
bool opensOtherDisks(const Table& table) {
    if constexpr (requires { table.zopendisk64_file; }) {
        return table.zopendisk64_file != nullptr;
    }
    return false;
}

TEST_F(StreamFileFunctions, TheirTableSuppliesAllButOpeningAnotherDisk) {
    const auto table = Functions::table();
    EXPECT_EQ(table.zopen64_file, &Functions::open);
    EXPECT_FALSE(opensOtherDisks(table));
    EXPECT_EQ(table.zread_file, &Functions::read);
    EXPECT_EQ(table.zwrite_file, &Functions::write);
    EXPECT_EQ(table.ztell64_file, &Functions::tell);
    EXPECT_EQ(table.zseek64_file, &Functions::seek);
    EXPECT_EQ(table.zclose_file, &Functions::close);
    EXPECT_EQ(table.zerror_file, &Functions::error);
    EXPECT_EQ(table.opaque, nullptr);
}

TEST_F(StreamFileFunctions, OpenReturnsWhatStandsForTheNameInAnyMode) {
    for (const int mode : {ZLIB_FILEFUNC_MODE_READ, ZLIB_FILEFUNC_MODE_CREATE, 0, -1}) {
        EXPECT_EQ(Functions::open(nullptr, &m_stream, mode), &m_stream);
    }
    EXPECT_EQ(Functions::open(nullptr, nullptr, 0), nullptr);
}

TEST_F(StreamFileFunctions, ReadReturnsTheNumberOfBytesObtained) {
    EXPECT_EQ(read(4), 4u);
    EXPECT_EQ(text(4), "0123");
    EXPECT_EQ(read(64), 6u);
    EXPECT_EQ(text(6), "456789");
}

TEST_F(StreamFileFunctions, AReadOfZeroBytesIsAnError) {
    EXPECT_EQ(read(0), failed);
    EXPECT_EQ(error(), 0);
}

TEST_F(StreamFileFunctions, AReadAtTheEndIsAnErrorThatLeavesTheStreamUsable) {
    EXPECT_EQ(read(64), 10u);
    EXPECT_EQ(read(1), failed);
    EXPECT_EQ(error(), 0);
    EXPECT_EQ(seek(2, ZLIB_FILEFUNC_SEEK_SET), 0);
    EXPECT_EQ(read(1), 1u);
    EXPECT_EQ(text(1), "2");
}

TEST_F(StreamFileFunctions, AReadGoesOnAfterShortReadsOfTheStreamBelow) {
    m_script->longestRead = 3;
    EXPECT_EQ(read(10), 10u);
    EXPECT_EQ(text(10), "0123456789");
}

TEST_F(StreamFileFunctions, AReadOfAsMuchAsCanBeAskedForIsCappedAndReturnsWhatThereIs) {
    // sgetn may be handed any count: it stops at the end of the data, before the end of the buffer.
    EXPECT_EQ(read(std::numeric_limits<uLong>::max()), 10u);
}

TEST_F(StreamFileFunctions, AThrowingStreamMakesAReadFailAndTheStreamBadForGood) {
    m_script->failReads = true;
    EXPECT_EQ(read(4), failed);
    EXPECT_EQ(error(), -1);
    m_script->failReads = false;
    EXPECT_EQ(error(), -1);
    EXPECT_EQ(seek(0, ZLIB_FILEFUNC_SEEK_SET), -1);
    EXPECT_EQ(tell(), allOnes);
}

TEST_F(StreamFileFunctions, TellAndSeekGiveAndTakePositionsInAllThreeDirections) {
    EXPECT_EQ(tell(), 0u);
    EXPECT_EQ(seek(4, ZLIB_FILEFUNC_SEEK_SET), 0);
    EXPECT_EQ(tell(), 4u);
    EXPECT_EQ(seek(2, ZLIB_FILEFUNC_SEEK_CUR), 0);
    EXPECT_EQ(tell(), 6u);
    EXPECT_EQ(seek(-3, ZLIB_FILEFUNC_SEEK_CUR), 0);
    EXPECT_EQ(tell(), 3u);
    EXPECT_EQ(seek(-1, ZLIB_FILEFUNC_SEEK_END), 0);
    EXPECT_EQ(tell(), 9u);
    EXPECT_EQ(read(1), 1u);
    EXPECT_EQ(text(1), "9");
}

TEST_F(StreamFileFunctions, PositionsBeyondFourGigabytesComeThrough) {
    const std::int64_t far = std::int64_t{5} << 32;
    EXPECT_EQ(seek(far, ZLIB_FILEFUNC_SEEK_SET), 0);
    EXPECT_EQ(tell(), static_cast<ZPOS64_T>(far));
}

TEST_F(StreamFileFunctions, ASeekWithOriginThreeReturnsMinusOneAndLeavesThePositionWhereItWas) {
    EXPECT_EQ(seek(4, ZLIB_FILEFUNC_SEEK_SET), 0);
    const int before = m_script->seeks;
    for (const int origin : {3, -1, 4711}) {
        EXPECT_EQ(seek(0, origin), -1);
    }
    EXPECT_EQ(m_script->seeks, before);
    EXPECT_EQ(error(), 0);
    EXPECT_EQ(tell(), 4u);
}

TEST_F(StreamFileFunctions, AFailedSeekMakesEveryLaterSeekAndTheErrorTestFail) {
    EXPECT_EQ(seek(-1, ZLIB_FILEFUNC_SEEK_SET), -1);
    EXPECT_EQ(error(), -1);
    EXPECT_EQ(seek(0, ZLIB_FILEFUNC_SEEK_SET), -1);
    EXPECT_EQ(error(), -1);
    EXPECT_EQ(tell(), allOnes);
}

TEST_F(StreamFileFunctions, AThrowingSeekIsAFailureNotAnException) {
    m_script->failSeeks = true;
    EXPECT_EQ(seek(5, ZLIB_FILEFUNC_SEEK_SET), -1);
    EXPECT_EQ(error(), -1);
}

TEST_F(StreamFileFunctions, WriteReturnsTheNumberOfBytesTaken) {
    EXPECT_EQ(Functions::write(nullptr, &m_stream, "ab", 2), 2u);
    EXPECT_EQ(Functions::write(nullptr, &m_stream, "", 0), 0u);
}

TEST_F(StreamFileFunctions, AThrowingStreamMakesAWriteTakeNothing) {
    m_script->failWrites = true;
    const std::string more(100'000, 'x');
    EXPECT_LT(Functions::write(nullptr, &m_stream, more.data(), static_cast<uLong>(more.size())),
              more.size());
    EXPECT_EQ(error(), -1);
}

TEST_F(StreamFileFunctions, CloseClosesTheByteStreamOnceAndReportsSuccess) {
    EXPECT_EQ(Functions::close(nullptr, &m_stream), 0);
    EXPECT_EQ(m_script->closes, 1);
    EXPECT_FALSE(m_stream.is_open());
}

TEST_F(StreamFileFunctions, CloseReportsAStreamThatHadFailed) {
    m_script->failReads = true;
    read(1);
    EXPECT_EQ(Functions::close(nullptr, &m_stream), -1);
    EXPECT_EQ(m_script->closes, 1);
}

TEST_F(StreamFileFunctions, CloseReportsAByteStreamThatCannotBeClosed) {
    m_script->failClose = true;
    EXPECT_EQ(Functions::close(nullptr, &m_stream), -1);
    EXPECT_EQ(m_script->closes, 1);
}

TEST_F(StreamFileFunctions, NeverThrowEvenFromAStreamThatReportsItsStateByExceptions) {
    m_stream.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    m_script->failReads = true;
    EXPECT_NO_THROW(EXPECT_EQ(read(1), failed));
    EXPECT_NO_THROW(EXPECT_EQ(seek(0, ZLIB_FILEFUNC_SEEK_SET), -1));
    EXPECT_NO_THROW(EXPECT_EQ(tell(), allOnes));
    EXPECT_NO_THROW(EXPECT_EQ(error(), -1));
    EXPECT_NO_THROW(EXPECT_EQ(Functions::close(nullptr, &m_stream), -1));
}

} // namespace
