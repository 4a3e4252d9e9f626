#include "Scripting/BindingType/PrimitiveHelper.h"
#include "Scripting/Reflection/Reflection.h"

#include <entt/meta/factory.hpp>

#include "ZentaryUnitTest/TestClass.h"

#include <optional>
#include <string_view>
#include <vector>

using Scripting::PrimitiveHelper::isPrimitive;

ZUT_REGISTER_TEST_CLASS(Scripting_PrimitiveHelperTests);
struct Scripting_PrimitiveHelperTestsBase : ZentaryUnitTest::TestClass<Scripting_PrimitiveHelperTests>
{
    void onAfterTest() override { entt::meta_reset(Scripting::Reflection::context()); }
};

class Scripting_PrimitiveHelperTests final : public Scripting_PrimitiveHelperTestsBase
{
    // Decided at compile time; nothing is left to run.
    ZUT_TEST(ValidatePrimitiveType_AllPossibleCases_WorksAsExpected)
    {
        enum class Enum
        {
        };
        struct Struct
        {
        };
        static_assert(isPrimitive<bool> && isPrimitive<char> && isPrimitive<int8_t> && isPrimitive<uint64_t>);
        static_assert(isPrimitive<float> && isPrimitive<double> && isPrimitive<long double>);
        static_assert(isPrimitive<std::string> && isPrimitive<const std::string&> && isPrimitive<const int>);
        static_assert(!isPrimitive<Enum> && !isPrimitive<Struct> && !isPrimitive<int*>);
        static_assert(!isPrimitive<std::string_view> && !isPrimitive<const char*>);
        static_assert(!isPrimitive<std::optional<int>> && !isPrimitive<std::vector<int>>);
    }
};
