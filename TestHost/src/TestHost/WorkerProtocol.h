#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Ovelith::CoreTestFramework
{
struct TestFailureReport;
}

namespace Ovelith::TestHost
{
// What host and worker say to each other over their socket. A record is a 32-bit length of what follows, a
// type byte and the payload; numbers travel in the machine's own byte order, since both ends are one program on
// one machine.
enum class RecordType : uint8_t
{
    // Host to worker.
    Run = 1,            // class index, first case index: run those cases on one new object
    Stop = 2,           // end the class after the running case
                        // Worker to host.
    Ready = 10,         // the module is initialised
    Report = 12,        // a failure report of the running case
    Finished = 13,      // case index, outcome, duration in nanoseconds
    ClassDone = 14,     // the cases of the last Run have run, or a stop ended them
    ModuleFailure = 15, // a message: the module failed outside any case
};

// Builds one record.
class RecordWriter
{
public:
    explicit RecordWriter(RecordType type);

    RecordWriter& add(uint64_t value);
    RecordWriter& add(std::string_view text);
    RecordWriter& add(const CoreTestFramework::TestFailureReport& report);

    // The whole record, length first.
    const std::string& bytes() const { return mBytes; }

private:
    void _updateLength();

    std::string mBytes;
};

struct Record
{
    RecordType type;
    std::string payload;
};

// Reads the fields of a payload in the order they were added; a field past the end reads as zero or empty
// and makes `ok` false.
class PayloadReader
{
public:
    explicit PayloadReader(std::string_view payload) : mRest(payload) {}

    uint64_t number();
    std::string text();
    CoreTestFramework::TestFailureReport report();
    bool ok() const { return mOk; }

private:
    std::string_view mRest;
    bool mOk = true;
};

// Cuts a byte stream into records as the bytes arrive.
class RecordBuffer
{
public:
    void append(const char* data, size_t size) { mBytes.append(data, size); }
    // The next whole record, if it has arrived.
    std::optional<Record> next();
    // A length no record can have arrived: the stream is not one of records.
    bool broken() const { return mBroken; }

private:
    std::string mBytes;
    size_t mOffset = 0;
    bool mBroken = false;
};

// Writes all of `bytes` to a socket, resuming after interruptions and never raising SIGPIPE. False when the
// other end is gone.
bool sendAll(int socket, std::string_view bytes);

// Blocks until one whole record has arrived. Nothing when the other end closed or the stream broke off.
std::optional<Record> receiveRecord(int socket);
} // namespace Ovelith::TestHost
