#include "Scripting/Runtime/Result.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <optional>
#include <string>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
struct CustomTestError : Error
{
    explicit CustomTestError(const std::string& message) : Error("CustomTestError", message) {}
};

struct CError : Error
{
    CError() : Error("CError", "Oh No!") {}
};

struct C2Error : Error
{
    C2Error() : Error("C2Error", "Oh No, again!") {}
};

struct CountingStorage
{
    int copies = 0;
    int moves = 0;
};

// Counts what a result does to the object it holds. The move is not noexcept, so a meta_any keeps the
// object on the heap and can hand it over without moving it.
struct TestClassWithCountingStorage
{
    explicit TestClassWithCountingStorage(CountingStorage& storage, int value = 0) : storage(&storage), value(value) {}
    TestClassWithCountingStorage(const TestClassWithCountingStorage& other) : storage(other.storage), value(other.value)
    {
        ++storage->copies;
    }
    TestClassWithCountingStorage(TestClassWithCountingStorage&& other) : storage(other.storage), value(other.value)
    {
        ++storage->moves;
    }
    TestClassWithCountingStorage& operator=(const TestClassWithCountingStorage&) = delete;
    TestClassWithCountingStorage& operator=(TestClassWithCountingStorage&&) = delete;

    CountingStorage* storage;
    int value;
};

struct TextHolder
{
    explicit TextHolder(const char* text) : text(text) {}
    std::string text;
};

void expectCounts(const CountingStorage& storage, int copies, int moves)
{
    Assert::AreEqual(storage.copies, copies, false, "copies");
    Assert::AreEqual(storage.moves, moves, false, "moves");
}

void expectError(const Error* error, const std::string& name, const std::string& message)
{
    Assert::IsTrue(error != nullptr, true, "an error is held");
    Assert::AreEqual(error->name, name);
    Assert::AreEqual(error->message, message);
}

template <typename R>
void expectValue(R& result, int value)
{
    Assert::IsFalse(result.isError(), true, "no error is held");
    Assert::IsTrue(result.tryGet() != nullptr, true, "a value is held");
    Assert::AreEqual(*result.tryGet(), value);
}
} // namespace

ZUT_TEST_CLASS(Scripting_QuickJS_ResultTests);
class Scripting_QuickJS_ResultTests final : public Scripting_QuickJS_ResultTestsBase
{
    ZUT_TEST(ResultAny_DefaultConstructShouldHoldEmpty)
    {
        const ResultAny result;
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGetError() == nullptr);
        Assert::IsFalse(static_cast<bool>(result.any()));
    }

    ZUT_TEST(ResultAny_ErrorConstrutorReturnsSameError)
    {
        const ResultAny result(Error("This is a error string"));
        Assert::IsTrue(result.isError());
        expectError(result.tryGetError(), "Error", "This is a error string");
    }

    ZUT_TEST(ResultAny_MakeResultFromAnyDoesNotError)
    {
        const ResultAny result = ResultAny::makeResultFromAny(entt::meta_any{42});
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGetError() == nullptr);
    }

    ZUT_TEST(ResultAny_MakeResultFromAnyStoresSameType)
    {
        const entt::meta_any any = std::string("value");
        const ResultAny result = ResultAny::makeResultFromAny(any);
        Assert::IsTrue(result.any().type() == any.type());
        Assert::AreEqual(result.any().cast<const std::string&>(), std::string("value"));
        // Reflection learns that CError is an Error when one first enters a result as an error. The check below
        // must not depend on an earlier case having done that.
        const ResultAny knownAsError(CError{});
        Assert::CheckDebugAsserts([] { ResultAny::makeResultFromAny(entt::meta_any{CError()}); },
                                  "Do not call makeResultFromAny with an error object.");
    }

    ZUT_TEST(ResultAny_MakeResultDoesntCopyOrMove)
    {
        CountingStorage storage;
        const ResultAny result = ResultAny::makeResult<TestClassWithCountingStorage>(storage, 3);
        expectCounts(storage, 0, 0);
        Assert::AreEqual(result.any().cast<const TestClassWithCountingStorage&>().value, 3);
    }

    ZUT_TEST(ResultAny_CopyConstructCopiesOnce)
    {
        CountingStorage storage;
        const ResultAny result = ResultAny::makeResult<TestClassWithCountingStorage>(storage);
        const ResultAny copy(result);
        expectCounts(storage, 1, 0);
        Assert::IsTrue(copy.any().data() != result.any().data(), false, "the copy has an object of its own");
    }

    ZUT_TEST(ResultAny_MoveConstructOnlyMovesAny)
    {
        CountingStorage storage;
        ResultAny result = ResultAny::makeResult<TestClassWithCountingStorage>(storage);
        const void* object = result.any().data();
        const ResultAny moved(std::move(result));
        expectCounts(storage, 0, 0);
        Assert::IsTrue(moved.any().data() == object, false, "the same object changed hands");
    }

    ZUT_TEST(ResultAny_ToAnyDoesntCopyOrMove)
    {
        CountingStorage storage;
        ResultAny result = ResultAny::makeResult<TestClassWithCountingStorage>(storage, 9);
        const entt::meta_any any = std::move(result).toAny();
        expectCounts(storage, 0, 0);
        Assert::AreEqual(any.cast<const TestClassWithCountingStorage&>().value, 9);
    }

    ZUT_TEST(ResultAny_ReflectionAnyToResultAny)
    {
        CountingStorage storage;
        TestClassWithCountingStorage object(storage, 11);
        ResultAny result = ResultAny::makeResultFromAny(entt::forward_as_meta(object));
        auto* held = result.any().try_cast<TestClassWithCountingStorage>();
        Assert::IsTrue(held == &object, true, "the reference any still refers to the object");
        held->value = 12;
        Assert::AreEqual(object.value, 12);
    }

    ZUT_TEST(Result_VoidIsEmpty)
    {
        Result<void> result;
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGetError() == nullptr);
        const ResultAny any = std::move(result);
        Assert::IsFalse(static_cast<bool>(any.any()));
    }

    ZUT_TEST(Result_tryGetFailsWithError)
    {
        Result<int, CustomTestError> result = CustomTestError("This Is a Error");
        Assert::IsTrue(result.tryGet() == nullptr);
        expectError(result.tryGetError(), "CustomTestError", "This Is a Error");
    }

    ZUT_TEST(Result_tryGetFailsWithErrorDeprecated)
    {
        Result_deprecated<int> result = CustomTestError("This Is a Error");
        Assert::IsTrue(result.tryGet() == nullptr);
        expectError(result.tryGetError(), "CustomTestError", "This Is a Error");
    }

    ZUT_TEST(Result_tryGetSuccessedWithValue)
    {
        Result<int> result = 5;
        expectValue(result, 5);
        Assert::IsTrue(result.tryGetError() == nullptr);
    }

    ZUT_TEST(Result_tryGetSuccessedWithValueDeprecated)
    {
        Result_deprecated<int> result = 5;
        expectValue(result, 5);
    }

    ZUT_TEST(Result_ErrorTypedResult)
    {
        Result<std::string, CustomTestError> result = std::string("World");
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr, true);
        Assert::AreEqual(*result.tryGet(), std::string("World"));
    }

    ZUT_TEST(Result_valueIsAReference)
    {
        Result<int> result = 1;
        result.value() = 2;
        expectValue(result, 2);
    }

    ZUT_TEST(Result_valueIsAReferenceDeprecated)
    {
        Result_deprecated<int> result = 1;
        result.value() = 2;
        expectValue(result, 2);
    }

    ZUT_TEST(Result_fromCopy)
    {
        CountingStorage storage;
        const TestClassWithCountingStorage original(storage, 4);
        auto result = Result<TestClassWithCountingStorage>::fromCopy(original);
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != &original, true, "the result holds a copy");
        Assert::AreEqual(result.value().value, 4);
        expectCounts(storage, 1, 0);
    }

    ZUT_TEST(Result_makeResultInPlaceConstructs)
    {
        CountingStorage storage;
        auto result = Result<TestClassWithCountingStorage>::makeResult(storage, 8);
        expectCounts(storage, 0, 0);
        Assert::AreEqual(result.value().value, 8);
    }

    ZUT_TEST(Result_FromResultAnyWithErrorHasErrorWithVoid)
    {
        auto result = Result<void>::fromResultAny(ResultAny(CustomTestError("Error")));
        Assert::IsTrue(result.isError());
        expectError(result.tryGetError(), "CustomTestError", "Error");
    }

    ZUT_TEST(Result_FromResultAnyWithErrorHasErrorWithType)
    {
        auto result = Result<int>::fromResultAny(ResultAny(CustomTestError("Error")));
        Assert::IsTrue(result.tryGet() == nullptr);
        expectError(result.tryGetError(), "CustomTestError", "Error");
    }

    ZUT_TEST(Result_FromResultAnyWithErrorHasErrorWithTypeDeprecated)
    {
        auto result = Result_deprecated<int>::fromResultAny(ResultAny(CustomTestError("Error")));
        Assert::IsTrue(result.tryGet() == nullptr);
        expectError(result.tryGetError(), "CustomTestError", "Error");
    }

    ZUT_TEST(Result_FromResultAnyWithEmptyMakesVoid)
    {
        const auto result = Result<void>::fromResultAny(ResultAny());
        Assert::IsFalse(result.isError());
        // A value is dropped as well.
        const auto dropped = Result<void>::fromResultAny(ResultAny::makeResult<int>(3));
        Assert::IsFalse(dropped.isError());
        Assert::IsFalse(static_cast<bool>(static_cast<ResultAny>(dropped).any()));
    }

    ZUT_TEST(Result_FromResultAnySameTypes)
    {
        auto result = Result<int>::fromResultAny(ResultAny::makeResult<int>(6));
        expectValue(result, 6);
    }

    ZUT_TEST(Result_FromResultAnySameTypesDeprecated)
    {
        auto result = Result_deprecated<int>::fromResultAny(ResultAny::makeResult<int>(6));
        expectValue(result, 6);
    }

    ZUT_TEST(Result_FromResultAnyWrongTypesMakesError)
    {
        Assert::CheckDebugAsserts(
            []
            {
                auto result = Result<int>::fromResultAny(ResultAny::makeResult<std::string>("text"));
                expectError(result.tryGetError(), "Error", "ResultAny is not same type as Result<T>!");
            },
            "ResultAny is not same type as Result<T>!", false, false, "Assert not raised.");
        Assert::IsTrue(
            []
            {
                try
                {
                    Result<int>::fromResultAny(ResultAny::makeResult<float>(1.0f));
                }
                catch (const std::runtime_error&)
                {
                    return true;
                }
                catch (...)
                {
                }
                return false;
            }(),
            false, "without a capture the assert itself throws");
    }

    ZUT_TEST(Result_FromResultAnyWrongTypesMakesErrorDeprecated)
    {
        Assert::CheckDebugAsserts(
            []
            {
                auto result = Result_deprecated<int>::fromResultAny(ResultAny::makeResult<std::string>("text"));
                expectError(result.tryGetError(), "Error", "ResultAny is not same type as Result<T>!");
            },
            "ResultAny is not same type as Result<T>!", false, false, "Assert not raised.");
    }

    ZUT_TEST(Result_BuildResultAnyFromCustomError)
    {
        const ResultAny result = CError();
        Assert::IsTrue(result.isError());
        expectError(result.tryGetError(), "CError", "Oh No!");
        Assert::IsTrue(result.any().type() == Reflection::resolve<CError>(), false, "the error keeps its own type");
    }

    ZUT_TEST(Result_BuildVoidResultFromCustomError)
    {
        const Result<void, CError> result = CError();
        expectError(result.tryGetError(), "CError", "Oh No!");
    }

    ZUT_TEST(Result_BuildVoidResultFromVoidResult)
    {
        Result<void> source;
        const Result<void, CError> result = std::move(source);
        Assert::IsFalse(result.isError());
    }

    ZUT_TEST(Result_BuildResultFromValidResult)
    {
        Result<int> source = 10;
        Result<int, CError> result = std::move(source);
        expectValue(result, 10);
    }

    ZUT_TEST(Result_BuildVoidResultFromResultWithCustomError)
    {
        Result<int, CError> source = CError();
        const Result<void, CError> result = std::move(source);
        expectError(result.tryGetError(), "CError", "Oh No!");
    }

    ZUT_TEST(Result_BuildResultFromResultWithCustomError)
    {
        const Result<int, CError> source = CError();
        const Result<int, CError, C2Error> result = source;
        expectError(result.tryGetError(), "CError", "Oh No!");
    }

    ZUT_TEST(Result_BuildResultFromOtherResultSubsetError)
    {
        Result<int, C2Error> source = C2Error();
        const Result<int, CError, C2Error> result = std::move(source);
        expectError(result.tryGetError(), "C2Error", "Oh No, again!");
    }

    ZUT_TEST(Result_BuildVoidResultFromOtherResultSubsetError)
    {
        Result<int, C2Error> source = C2Error();
        const Result<void, CError, C2Error> result = std::move(source);
        expectError(result.tryGetError(), "C2Error", "Oh No, again!");
    }

    ZUT_TEST(Result_VoidResultCopyCausesCopy)
    {
        CountingStorage storage;
        const auto source = Result<TestClassWithCountingStorage>::makeResult(storage);
        const Result<void> result = source;
        Assert::IsFalse(result.isError());
        expectCounts(storage, 1, 0);
    }

    ZUT_TEST(Result_VoidResultMoveDoesntCausesCopy)
    {
        CountingStorage storage;
        auto source = Result<TestClassWithCountingStorage>::makeResult(storage);
        const Result<void> result = std::move(source);
        Assert::IsFalse(result.isError());
        expectCounts(storage, 0, 0);
    }

    ZUT_TEST(Result_BuildResultVoidFromDifferentErrors)
    {
        Result<int, CError> first = 1;
        Result<std::string, C2Error> second = std::string("two");
        const Result<void, CError, C2Error> fromFirst = std::move(first);
        const Result<void, CError, C2Error> fromSecond = std::move(second);
        Assert::IsFalse(fromFirst.isError());
        Assert::IsFalse(fromSecond.isError());
    }

    ZUT_TEST(Result_BuildResultVoidWithErrorFromDifferentErrors)
    {
        Result<int, CError> first = CError();
        Result<std::string, C2Error> second = C2Error();
        const Result<void, CError, C2Error> fromFirst = std::move(first);
        const Result<void, CError, C2Error> fromSecond = std::move(second);
        expectError(fromFirst.tryGetError(), "CError", "Oh No!");
        expectError(fromSecond.tryGetError(), "C2Error", "Oh No, again!");
        // Under Error as well as under the error's own type.
        const ResultAny any = fromSecond;
        expectError(any.tryGetError(), "C2Error", "Oh No, again!");
        Assert::IsTrue(any.any().try_cast<const C2Error>() != nullptr);
    }

    ZUT_TEST(Result_BuildResultOptionalWithNullopt)
    {
        Result<std::optional<int>> result = std::nullopt;
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr, true);
        Assert::IsFalse(result.value().has_value());
    }

    ZUT_TEST(Result_BuildResultCustomClassWithMatchingParam)
    {
        Result<TextHolder> result("Test");
        Assert::IsFalse(result.isError());
        Assert::AreEqual(result.value().text, std::string("Test"));
    }

    ZUT_TEST(Result_BuildResultOptionalCustomClassWithMatchingParam)
    {
        Result<std::optional<TextHolder>> result(TextHolder("Test"));
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.value().has_value(), true);
        Assert::AreEqual(result.value()->text, std::string("Test"));
    }
};
