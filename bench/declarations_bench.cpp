// Declarations of a large module: 1,000 classes of 10 members each (a constructor aside: four methods with
// bounded arguments, a static function, four properties with bounds, a constant), written for the Lua language
// server and for TypeScript. Beside them in the same run: a deep copy of the same module binding, and a text of
// only its names, the least any declaration writer appends.
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/Lua/Declarations.h"

#include <benchmark/benchmark.h>

#include <string>

using namespace Scripting;

namespace
{
constexpr int CLASSES = 1000;

struct Widget
{
    int size = 0;
    float weight = 0.0f;
    std::string label;
    std::vector<int> slots;

    int grow(int by) { return size += by; }
    float scale(float factor, int times) { return weight * factor * static_cast<float>(times); }
    std::string describe(const std::string& prefix) const { return prefix + label; }
    void fill(const std::vector<int>& values) { slots = values; }
};

ModuleBinding makeModule()
{
    ClassBindingBuilder<Widget> widget("Widget");
    widget.constructor([] { return Widget{}; });
    widget.method<&Widget::grow>("grow", ArgumentBindingBuilder<int>("by").bounds(1, 100));
    widget.method<&Widget::scale>("scale", ArgumentBindingBuilder<float>("factor").bounds(0.0f, 10.0f),
                                  ArgumentBindingBuilder<int>("times").defaultValue(1));
    widget.method<&Widget::describe>("describe", ArgumentBindingBuilder<const std::string&>("prefix"));
    widget.method<&Widget::fill>("fill", ArgumentBindingBuilder<const std::vector<int>&>("values").bounds(0, 9));
    widget.function(
        "make",
        [](int size)
        {
            Widget made;
            made.size = size;
            return made;
        },
        ArgumentBindingBuilder<int>("size"));
    widget.property<&Widget::size>("size").bounds(0, 1000);
    widget.property<&Widget::weight>("weight").bounds(0.0f, 50.0f);
    widget.property<&Widget::label>("label");
    widget.property<&Widget::slots>("slots");
    widget.constant("MAX", 1000);
    const ClassBinding one = widget.finish();

    ModuleBinding module;
    module.descriptor.name = "@bench/widgets";
    module.classBindings.reserve(CLASSES);
    for (int index = 0; index < CLASSES; ++index)
    {
        module.classBindings.push_back(one);
        module.classBindings.back().name = "Widget" + std::to_string(index);
    }
    return module;
}

void BM_Declarations_BothFormats(benchmark::State& state)
{
    const ModuleBinding module = makeModule();
    size_t bytes = 0;
    for (auto _ : state)
    {
        const std::string lua = Lua::writeModuleDeclarations(module, Lua::DeclarationFormat::LuaAnnotations);
        const std::string ts = Lua::writeModuleDeclarations(module, Lua::DeclarationFormat::TypeScript);
        bytes = lua.size() + ts.size();
        benchmark::DoNotOptimize(lua.data());
        benchmark::DoNotOptimize(ts.data());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_Declarations_BothFormats)->Unit(benchmark::kMillisecond);

void BM_Declarations_LuaAnnotations(benchmark::State& state)
{
    const ModuleBinding module = makeModule();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Lua::writeModuleDeclarations(module, Lua::DeclarationFormat::LuaAnnotations));
    }
}
BENCHMARK(BM_Declarations_LuaAnnotations)->Unit(benchmark::kMillisecond);

void BM_Declarations_TypeScript(benchmark::State& state)
{
    const ModuleBinding module = makeModule();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Lua::writeModuleDeclarations(module, Lua::DeclarationFormat::TypeScript));
    }
}
BENCHMARK(BM_Declarations_TypeScript)->Unit(benchmark::kMillisecond);

void BM_Baseline_CopyModuleBinding(benchmark::State& state)
{
    const ModuleBinding module = makeModule();
    for (auto _ : state)
    {
        ModuleBinding copy = module;
        benchmark::DoNotOptimize(copy.classBindings.data());
    }
}
BENCHMARK(BM_Baseline_CopyModuleBinding)->Unit(benchmark::kMillisecond);

void BM_Baseline_NamesOnly(benchmark::State& state)
{
    const ModuleBinding module = makeModule();
    for (auto _ : state)
    {
        std::string text;
        for (const ClassBinding& binding : module.classBindings)
        {
            text += binding.name;
            text += '\n';
            for (const FunctionBinding& function : binding.functions)
            {
                text += function.name;
                text += '\n';
            }
            for (const PropertyBinding& property : binding.properties)
            {
                text += property.name;
                text += '\n';
            }
        }
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(BM_Baseline_NamesOnly)->Unit(benchmark::kMillisecond);
} // namespace
