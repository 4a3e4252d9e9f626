#include "TestHost/WorkerProtocol.h"

#include "ZentaryUnitTest/TestResult.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Ovelith::TestHost
{
namespace
{
constexpr size_t LENGTH_SIZE = sizeof(uint32_t);

// Long enough for any report a case can make, short enough that a broken stream cannot make the host allocate
// without bound.
constexpr uint32_t LARGEST_RECORD = 64u << 20;
} // namespace

RecordWriter::RecordWriter(RecordType type) : mBytes(LENGTH_SIZE, '\0')
{
    mBytes.push_back(static_cast<char>(type));
    _updateLength();
}

void RecordWriter::_updateLength()
{
    const auto length = static_cast<uint32_t>(mBytes.size() - LENGTH_SIZE);
    std::memcpy(mBytes.data(), &length, LENGTH_SIZE);
}

RecordWriter& RecordWriter::add(uint64_t value)
{
    char bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    mBytes.append(bytes, sizeof(value));
    _updateLength();
    return *this;
}

RecordWriter& RecordWriter::add(std::string_view text)
{
    add(static_cast<uint64_t>(text.size()));
    mBytes.append(text);
    _updateLength();
    return *this;
}

RecordWriter& RecordWriter::add(const CoreTestFramework::TestFailureReport& report)
{
    add(report.function).add(report.file).add(report.line).add(report.message);
    add(uint64_t{report.details.has_value()});
    if (report.details)
    {
        add(report.details->comparison).add(report.details->left).add(report.details->right);
    }
    return *this;
}

uint64_t PayloadReader::number()
{
    uint64_t value = 0;
    if (mRest.size() < sizeof(value))
    {
        mOk = false;
        mRest = {};
        return 0;
    }
    std::memcpy(&value, mRest.data(), sizeof(value));
    mRest.remove_prefix(sizeof(value));
    return value;
}

std::string PayloadReader::text()
{
    const uint64_t size = number();
    if (size > mRest.size())
    {
        mOk = false;
        mRest = {};
        return {};
    }
    std::string value(mRest.substr(0, size));
    mRest.remove_prefix(size);
    return value;
}

CoreTestFramework::TestFailureReport PayloadReader::report()
{
    CoreTestFramework::TestFailureReport report;
    report.function = text();
    report.file = text();
    report.line = text();
    report.message = text();
    if (number() != 0)
    {
        CoreTestFramework::TestFailureDetails details;
        details.comparison = text();
        details.left = text();
        details.right = text();
        report.details = std::move(details);
    }
    return report;
}

std::optional<Record> RecordBuffer::next()
{
    const size_t available = mBytes.size() - mOffset;
    if (available < LENGTH_SIZE)
    {
        return std::nullopt;
    }
    uint32_t length = 0;
    std::memcpy(&length, mBytes.data() + mOffset, LENGTH_SIZE);
    if (length == 0 || length > LARGEST_RECORD)
    {
        mBroken = true;
        return std::nullopt;
    }
    if (available - LENGTH_SIZE < length)
    {
        return std::nullopt;
    }
    const char* start = mBytes.data() + mOffset + LENGTH_SIZE;
    Record record{static_cast<RecordType>(start[0]), std::string(start + 1, length - 1)};
    mOffset += LENGTH_SIZE + length;
    // Consumed bytes are dropped once they are the bulk, so the buffer stays as small as what is pending.
    if (mOffset > 4096 && mOffset * 2 > mBytes.size())
    {
        mBytes.erase(0, mOffset);
        mOffset = 0;
    }
    return record;
}

bool sendAll(int socket, std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

namespace
{
bool receiveExactly(int socket, char* data, size_t size)
{
    while (size > 0)
    {
        const ssize_t received = ::recv(socket, data, size, 0);
        if (received == 0)
        {
            return false;
        }
        if (received < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return false;
        }
        data += received;
        size -= static_cast<size_t>(received);
    }
    return true;
}
} // namespace

std::optional<Record> receiveRecord(int socket)
{
    uint32_t length = 0;
    char lengthBytes[LENGTH_SIZE];
    if (!receiveExactly(socket, lengthBytes, LENGTH_SIZE))
    {
        return std::nullopt;
    }
    std::memcpy(&length, lengthBytes, LENGTH_SIZE);
    if (length == 0 || length > LARGEST_RECORD)
    {
        return std::nullopt;
    }
    std::string body(length, '\0');
    if (!receiveExactly(socket, body.data(), length))
    {
        return std::nullopt;
    }
    return Record{static_cast<RecordType>(body[0]), body.substr(1)};
}
} // namespace Ovelith::TestHost
