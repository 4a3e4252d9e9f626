// A stand-in for FakeIt's single header, for the tests only: just enough of its exception type to prove
// that a build which finds <fakeit.hpp> reports FakeIt failures. Like FakeIt's, the exception does not
// derive from std::exception and its what() returns a std::string.
#pragma once

#include <string>

namespace fakeit
{
struct FakeitException
{
    virtual ~FakeitException() = default;
    virtual std::string what() const = 0;
};

struct UnexpectedMethodCallException : FakeitException
{
    explicit UnexpectedMethodCallException(std::string text) : mText(std::move(text)) {}
    std::string what() const override { return mText; }

    std::string mText;
};
} // namespace fakeit
