#include "Scripting/Lua/Declarations.h"

#include "LuaContext.h"

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/DataBuffer.h"
#include "Scripting/Runtime/Result.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/Runtime/ScriptGenerator.h"
#include "Scripting/Runtime/ScriptPromise.h"

#include <fmt/format.h>

#include <array>
#include <fstream>
#include <limits>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Scripting::Lua
{
namespace internal
{
namespace
{
// optional<vector<optional<...>>> and closures of such: deeper than any real binding, and a guard against a
// type that names itself.
constexpr int MAX_TYPE_DEPTH = 8;
// As deep as the runtime looks for a bound base of an unbound class.
constexpr int MAX_BASE_DEPTH = 16;
// The longest list of accepted strings an argument can be given and still be read back.
constexpr size_t MAX_VALID_VALUES = 32;

bool isLua(DeclarationFormat format)
{
    return format == DeclarationFormat::LuaAnnotations;
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && text.front() == ' ')
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.back() == ' ')
    {
        text.remove_suffix(1);
    }
    return text;
}

bool isIdentifier(std::string_view name)
{
    if (name.empty() || (name.front() >= '0' && name.front() <= '9'))
    {
        return false;
    }
    for (const char c : name)
    {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        if (!letter && !(c >= '0' && c <= '9'))
        {
            return false;
        }
    }
    return true;
}

bool isLuaKeyword(std::string_view name)
{
    static const std::unordered_set<std::string_view> sKeywords{
        "and", "break", "do",  "else", "elseif", "end",    "false",  "for",  "function", "goto",  "if",
        "in",  "local", "nil", "not",  "or",     "repeat", "return", "then", "true",     "until", "while"};
    return sKeywords.contains(name);
}

bool isTypeScriptReserved(std::string_view name)
{
    static const std::unordered_set<std::string_view> sReserved{
        "break", "case",   "catch",   "class",      "const",     "continue", "debugger", "default",   "delete",
        "do",    "else",   "enum",    "export",     "extends",   "false",    "finally",  "for",       "function",
        "if",    "import", "in",      "instanceof", "new",       "null",     "return",   "super",     "switch",
        "this",  "throw",  "true",    "try",        "typeof",    "var",      "void",     "while",     "with",
        "yield", "let",    "static",  "implements", "interface", "package",  "private",  "protected", "public",
        "await", "any",    "boolean", "number",     "string",    "symbol",   "never",    "unknown",   "object"};
    return sReserved.contains(name);
}

// A string literal both languages read the same way.
std::string literal(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text)
    {
        switch (c)
        {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
            {
                out += fmt::format("\\{:03d}", static_cast<int>(static_cast<unsigned char>(c)));
            }
            else
            {
                out += c;
            }
        }
    }
    out += '"';
    return out;
}

// Doc text goes inside a comment: a line break or a comment end in it must not end the comment.
std::string commentText(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t index = 0; index < text.size(); ++index)
    {
        const char c = text[index];
        if (c == '\n' || c == '\r')
        {
            out += ' ';
        }
        else if (c == '*' && index + 1 < text.size() && text[index + 1] == '/')
        {
            out += "* ";
        }
        else
        {
            out += c;
        }
    }
    return out;
}

// Appends `item` to a list written with `separator` between items.
void appendListed(std::string& list, std::string_view separator, std::string_view item)
{
    if (!list.empty())
    {
        list += separator;
    }
    list += item;
}

std::optional<double> numberOf(const entt::meta_any& value)
{
    if (!value || !value.type().is_arithmetic())
    {
        return std::nullopt;
    }
    const entt::meta_any number = value.allow_cast<double>();
    return number ? std::optional<double>(number.cast<double>()) : std::nullopt;
}

std::string numberText(double value)
{
    return fmt::format("{}", value);
}

template <typename T>
std::pair<double, double> limitsOf()
{
    return {static_cast<double>(std::numeric_limits<T>::lowest()), static_cast<double>(std::numeric_limits<T>::max())};
}

// The bounds every number argument starts with are its type's own, and say nothing worth reading.
bool boundsOfTypeOnly(const entt::meta_any& min, double low, double high)
{
    std::optional<std::pair<double, double>> limits;
    switch (primitiveOf(min.type()))
    {
    case Primitive::Int8:
        limits = limitsOf<int8_t>();
        break;
    case Primitive::UInt8:
        limits = limitsOf<uint8_t>();
        break;
    case Primitive::Int16:
        limits = limitsOf<int16_t>();
        break;
    case Primitive::UInt16:
        limits = limitsOf<uint16_t>();
        break;
    case Primitive::Int32:
        limits = limitsOf<int32_t>();
        break;
    case Primitive::UInt32:
        limits = limitsOf<uint32_t>();
        break;
    case Primitive::Int64:
        limits = limitsOf<int64_t>();
        break;
    case Primitive::UInt64:
        limits = limitsOf<uint64_t>();
        break;
    case Primitive::Float:
        limits = limitsOf<float>();
        break;
    case Primitive::Double:
        limits = limitsOf<double>();
        break;
    default:
        break;
    }
    return limits.has_value() && limits->first == low && limits->second == high;
}

template <size_t N>
bool readValidValues(const entt::meta_any& values, std::vector<std::string>& out)
{
    const auto* array = values.try_cast<const std::array<std::string, N>>();
    if (array == nullptr)
    {
        return false;
    }
    out.assign(array->begin(), array->end());
    return true;
}

// The accepted strings of an argument are a std::array of a size only the binding knew.
std::vector<std::string> validValuesOf(const entt::meta_any& values)
{
    std::vector<std::string> out;
    if (values)
    {
        [&]<size_t... Sizes>(std::index_sequence<Sizes...>)
        {
            (readValidValues<Sizes + 1>(values, out) || ...);
        }
        (std::make_index_sequence<MAX_VALID_VALUES>{});
    }
    return out;
}

struct NamedType
{
    std::string name;
    const ModuleBinding* module = nullptr;
    const EnumBinding* enumBinding = nullptr;
};

bool isErrorType(const entt::meta_type& type)
{
    static const entt::meta_type sError = Reflection::resolve<Error>();
    return type == sError || Reflection::HasBaseType(sError, type);
}

bool isNumericEnum(const EnumBinding& binding)
{
    return !binding.constants.empty() && binding.constants.front().type != Reflection::resolve<std::string>();
}

int64_t enumNumber(const EnumValueBinding& value)
{
    const entt::meta_any number = value.value.allow_cast<int64_t>();
    return number ? number.cast<int64_t>() : 0;
}

// An unset meta_type has no type info: upstream EnTT dereferences a null node to read it, so an unset type is
// keyed apart instead of asked.
entt::id_type typeKey(const entt::meta_type& type)
{
    return type ? type.info().hash() : entt::id_type{};
}

template <typename... T>
void addNativeNames(std::unordered_map<std::string, entt::meta_type>& names)
{
    (names.emplace(std::string(Reflection::resolve<T>().info().name()), Reflection::resolve<T>()), ...);
}

class DeclarationWriter
{
public:
    DeclarationWriter(const ModuleBinding& module, std::span<const ModuleBinding> dependencies,
                      DeclarationFormat format)
        : mModule(module), mFormat(format)
    {
        addNamedTypes(module);
        for (const ModuleBinding& dependency : dependencies)
        {
            if (&dependency != &module && dependency.descriptor.name != module.descriptor.name)
            {
                addNamedTypes(dependency);
            }
        }
        // A closure's signature is known only by the text of its native type; these are the names it can
        // hold, spelled as this build spells them.
        addNativeNames<bool, int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, long long,
                       unsigned long long, float, double, std::string, std::vector<int>, std::vector<float>,
                       std::vector<double>, std::vector<std::string>, std::optional<int>, std::optional<float>,
                       std::optional<double>, std::optional<std::string>, ClosureAny, GeneratorAny, PromiseAny,
                       FutureAny, DataBufferAny, StrongObjectHandle>(mNativeNames);
    }

    std::string write()
    {
        mOut.reserve(256 + 256 * (mModule.classBindings.size() * 4 + mModule.functionBindings.size()));
        if (isLua(mFormat))
        {
            writeLua();
        }
        else
        {
            writeTypeScript();
        }
        return std::move(mOut);
    }

private:
    void addNamedTypes(const ModuleBinding& module)
    {
        for (const ClassBinding& binding : module.classBindings)
        {
            mNamed.emplace(typeKey(binding.type), NamedType{binding.name, &module});
        }
        for (const EnumBinding& binding : module.enumBindings)
        {
            mNamed.emplace(typeKey(binding.type), NamedType{binding.name, &module, &binding});
        }
        for (const InterfaceBinding& binding : module.interfaceBindings)
        {
            mNamed.emplace(typeKey(binding.type), NamedType{binding.name, &module});
        }
        for (const ErrorBinding& binding : module.errorBindings)
        {
            // An error bound as an interface as well is thrown as an error.
            mNamed.insert_or_assign(typeKey(binding.type), NamedType{binding.name, &module});
        }
        auto addNames = [this](const auto& bindings)
        {
            for (const auto& binding : bindings)
            {
                if (binding.type)
                {
                    mNativeNames.emplace(std::string(binding.type.info().name()), binding.type);
                }
            }
        };
        addNames(module.classBindings);
        addNames(module.enumBindings);
        addNames(module.interfaceBindings);
        addNames(module.errorBindings);
    }

    const NamedType* named(const entt::meta_type& type) const
    {
        if (!type)
        {
            return nullptr;
        }
        const auto found = mNamed.find(typeKey(type));
        return found != mNamed.end() ? &found->second : nullptr;
    }

    // A class no module binds reaches scripts as its nearest bound base, as the runtime shows it.
    const NamedType* namedOrBase(entt::meta_type type) const
    {
        for (int level = 0; level < MAX_BASE_DEPTH && type; ++level)
        {
            if (const NamedType* found = named(type))
            {
                return found;
            }
            entt::meta_type next;
            for (auto&& [id, base] : type.base())
            {
                (void)id;
                next = base;
                break;
            }
            type = next;
        }
        return nullptr;
    }

    std::string functionType() const { return isLua(mFormat) ? "function" : "(this: void, ...args: any[]) => any"; }

    // A compound type inside an array or an optional needs parentheses.
    static std::string grouped(std::string text)
    {
        if (text.find('|') != std::string::npos || text.find("=>") != std::string::npos || text.rfind("fun(", 0) == 0)
        {
            return "(" + text + ")";
        }
        return text;
    }

    // The language server's types are names of letters, digits, '_' and '.'; the table keys keep the real name.
    static std::string luaTypeName(std::string_view name)
    {
        std::string out;
        out.reserve(name.size());
        for (const char c : name)
        {
            const bool kept =
                (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
            out += kept ? c : '_';
        }
        return out.empty() ? "_" : out;
    }

    static bool isTypeScriptName(const std::string& name) { return isIdentifier(name) && !isTypeScriptReserved(name); }

    // A record whose name TypeScript cannot declare is left out, with a comment saying so.
    bool skippedInTypeScript(const std::string& indent, const std::string& name)
    {
        if (isTypeScriptName(name))
        {
            return false;
        }
        mOut += indent + "// " + commentText(name) + ": not a name TypeScript can declare\n";
        return true;
    }

    std::string typeName(const NamedType& type) const
    {
        if (isLua(mFormat))
        {
            return luaTypeName(type.name);
        }
        if (!isTypeScriptName(type.name))
        {
            return "any";
        }
        if (type.module == &mModule)
        {
            return type.name;
        }
        return fmt::format("import({}).{}", literal(type.module->descriptor.name), type.name);
    }

    std::string typeText(const entt::meta_type& type, int depth = 0) const
    {
        const bool lua = isLua(mFormat);
        if (depth > MAX_TYPE_DEPTH)
        {
            return "any";
        }
        if (!type || type == Reflection::resolve<void>())
        {
            return lua ? "nil" : "void";
        }
        switch (primitiveOf(type))
        {
        case Primitive::Bool:
            return "boolean";
        case Primitive::String:
            return "string";
        case Primitive::Float:
        case Primitive::Double:
            return "number";
        case Primitive::None:
            break;
        default:
            return lua ? "integer" : "number";
        }
        if (const NamedType* found = namedOrBase(type))
        {
            return typeName(*found);
        }
        if (isSpecializationOf<Result>(type) || isSpecializationOf<Result_deprecated>(type))
        {
            return typeText(type.template_arg(0), depth + 1);
        }
        if (type == Reflection::resolve<ResultAny>())
        {
            return "any";
        }
        if (isSpecializationOf<std::optional>(type))
        {
            const std::string inner = typeText(type.template_arg(0), depth + 1);
            return lua ? grouped(inner) + "?" : inner + " | undefined";
        }
        if (isSpecializationOf<std::vector>(type))
        {
            return grouped(typeText(type.template_arg(0), depth + 1)) + "[]";
        }
        if (isSpecializationOf<StrongTypedObjectHandle>(type) || isSpecializationOf<WeakTypedObjectHandle>(type) ||
            isSpecializationOf<TypedObjectHandle>(type))
        {
            return typeText(type.template_arg(0), depth + 1);
        }
        if (type == Reflection::resolve<StrongObjectHandle>() || type == Reflection::resolve<WeakObjectHandle>())
        {
            return lua ? "userdata" : "object";
        }
        if (type == Reflection::resolve<ClosureAny>())
        {
            return functionType();
        }
        if (isSpecializationOf<Closure>(type))
        {
            return closureText(type, depth + 1);
        }
        if (type == Reflection::resolve<GeneratorAny>())
        {
            return lua ? "function|thread" : functionType();
        }
        if (type == Reflection::resolve<PromiseAny>() || type == Reflection::resolve<FutureAny>())
        {
            return lua ? "Promise" : "ScriptPromise";
        }
        if (type == Reflection::resolve<DataBufferAny>())
        {
            return lua ? "Buffer|string" : "Buffer | string";
        }
        if (isErrorType(type))
        {
            return "ScriptError";
        }
        return "any";
    }

    // `Closure<R (*)(A, B)>`: the meta system keeps the signature only as the text of its type.
    std::string closureText(const entt::meta_type& closure, int depth) const
    {
        const entt::meta_type signature = closure.template_arg(0);
        const std::string_view text = signature ? signature.info().name() : std::string_view{};
        const size_t mark = text.find("(*)(");
        if (mark == std::string_view::npos || text.back() != ')')
        {
            return functionType();
        }
        const std::string_view returned = trim(text.substr(0, mark));
        const std::string_view inside = text.substr(mark + 4, text.size() - mark - 5);
        std::vector<std::string> arguments;
        int nesting = 0;
        size_t start = 0;
        for (size_t index = 0; index <= inside.size(); ++index)
        {
            const char c = index < inside.size() ? inside[index] : ',';
            if (c == '<' || c == '(' || c == '[')
            {
                ++nesting;
            }
            else if (c == '>' || c == ')' || c == ']')
            {
                --nesting;
            }
            else if (c == ',' && nesting == 0)
            {
                const std::string_view argument = trim(inside.substr(start, index - start));
                if (!argument.empty() && argument != "void")
                {
                    arguments.push_back(nativeTypeText(argument, depth));
                }
                start = index + 1;
            }
        }
        const std::string result =
            returned == "void" ? (isLua(mFormat) ? "" : "void") : nativeTypeText(returned, depth);
        std::string out = isLua(mFormat) ? "fun(" : "(this: void";
        for (size_t index = 0; index < arguments.size(); ++index)
        {
            if (isLua(mFormat))
            {
                out += fmt::format("{}arg{}: {}", index == 0 ? "" : ", ", index + 1, arguments[index]);
            }
            else
            {
                out += fmt::format(", arg{}: {}", index + 1, arguments[index]);
            }
        }
        if (isLua(mFormat))
        {
            return out + (result.empty() ? ")" : "): " + result);
        }
        return out + ") => " + result;
    }

    std::string nativeTypeText(std::string_view spelled, int depth) const
    {
        std::string_view name = trim(spelled);
        if (name.starts_with("const "))
        {
            name = trim(name.substr(6));
        }
        while (!name.empty() && name.back() == '&')
        {
            name = trim(name.substr(0, name.size() - 1));
        }
        if (name.ends_with(" const"))
        {
            name = trim(name.substr(0, name.size() - 6));
        }
        const auto found = mNativeNames.find(std::string(name));
        return found != mNativeNames.end() ? typeText(found->second, depth) : "any";
    }

    // The script's text of an argument's default, where it has one a reader would recognise.
    std::string defaultText(const entt::meta_any& value) const
    {
        if (const auto* text = value.try_cast<const std::string>())
        {
            return literal(*text);
        }
        if (const auto* flag = value.try_cast<const bool>())
        {
            return *flag ? "true" : "false";
        }
        if (const std::optional<double> number = numberOf(value); number.has_value() && !value.type().is_enum())
        {
            return numberText(*number);
        }
        if (const NamedType* found = named(value.type()); found != nullptr && found->enumBinding != nullptr)
        {
            for (const EnumValueBinding& member : found->enumBinding->values)
            {
                if (member.value == value)
                {
                    return member.name;
                }
            }
        }
        return {};
    }

    struct Parameter
    {
        std::string name;
        std::string type;
        bool optional = false;
        std::string note;
    };

    std::string parameterName(const ArgumentBinding& argument, size_t index) const
    {
        const bool usable = isIdentifier(argument.name) &&
                            !(isLua(mFormat) ? isLuaKeyword(argument.name) : isTypeScriptReserved(argument.name));
        return usable ? argument.name : fmt::format("arg{}", index + 1);
    }

    std::vector<Parameter> parametersOf(const FunctionBinding& function) const
    {
        std::vector<Parameter> parameters;
        parameters.reserve(function.arguments.size());
        for (size_t index = 0; index < function.arguments.size(); ++index)
        {
            const ArgumentBinding& argument = function.arguments[index];
            const ArgumentDetails& details = argument.details;
            Parameter parameter;
            parameter.name = parameterName(argument, index);
            entt::meta_type type = argument.type;
            if (isSpecializationOf<std::optional>(type))
            {
                parameter.optional = true;
                type = type.template_arg(0);
            }
            parameter.type = typeText(type);
            std::vector<std::string> notes;
            const std::vector<std::string> accepted = validValuesOf(details.validValues);
            if (!accepted.empty())
            {
                std::string literals;
                for (const std::string& value : accepted)
                {
                    appendListed(literals, isLua(mFormat) ? "|" : " | ", literal(value));
                }
                parameter.type = literals;
                std::string list;
                for (const std::string& value : accepted)
                {
                    appendListed(list, ", ", literal(value));
                }
                notes.push_back("one of " + list);
            }
            const std::optional<double> low = numberOf(details.minValue);
            const std::optional<double> high = numberOf(details.maxValue);
            if (low.has_value() && high.has_value() && !boundsOfTypeOnly(details.minValue, *low, *high))
            {
                notes.push_back(numberText(*low) + ".." + numberText(*high));
            }
            if (details.defaultValue)
            {
                parameter.optional = true;
                const std::string shown = defaultText(details.defaultValue);
                if (!shown.empty())
                {
                    notes.push_back("default " + shown);
                }
            }
            for (const std::string& note : notes)
            {
                appendListed(parameter.note, "; ", note);
            }
            parameters.push_back(std::move(parameter));
        }
        // Only trailing arguments can be left out; one before a required argument is passed as nil.
        bool required = false;
        for (size_t index = parameters.size(); index-- > 0;)
        {
            if (required && parameters[index].optional)
            {
                parameters[index].optional = false;
                parameters[index].type += isLua(mFormat) ? "|nil" : " | undefined";
            }
            required = required || !parameters[index].optional;
        }
        return parameters;
    }

    std::string returnTypeOf(const FunctionBinding& function) const
    {
        return function.function != nullptr ? typeText(function.function->getReturnType())
                                            : (isLua(mFormat) ? "nil" : "void");
    }

    static bool isMethod(const FunctionBinding& function)
    {
        return function.function != nullptr && function.function->getClassType().has_value();
    }

    static std::string conditionsNote(const std::vector<std::string>& conditions)
    {
        std::string list;
        for (const std::string& condition : conditions)
        {
            appendListed(list, ", ", condition);
        }
        return list.empty() ? list : "Needs the runtime conditions: " + list + ".";
    }

    // An error's fields are all read-only, and its declaration says so once.
    static std::string propertyNote(const PropertyBinding& property, bool sayReadOnly = true)
    {
        std::string note;
        const std::optional<double> low = numberOf(property.minValue);
        const std::optional<double> high = numberOf(property.maxValue);
        if (low.has_value() && high.has_value())
        {
            note = numberText(*low) + ".." + numberText(*high);
        }
        if (property.setter == nullptr && sayReadOnly)
        {
            note += note.empty() ? "read-only" : ", read-only";
        }
        return note;
    }

    // ---- Lua language server ----

    std::string luaKey(const std::string& table, const std::string& name) const
    {
        return isIdentifier(name) && !isLuaKeyword(name) ? fmt::format("{}.{}", table, name)
                                                         : fmt::format("{}[{}]", table, literal(name));
    }

    std::string luaField(const std::string& name) const
    {
        return isIdentifier(name) && !isLuaKeyword(name) ? name : fmt::format("[{}]", literal(name));
    }

    void luaDoc(const std::string& text)
    {
        if (!text.empty())
        {
            mOut += "--- " + commentText(text) + "\n";
        }
    }

    // `target` is a table path ("__module.Entity") or, for a method, the instance table and ':'.
    void luaFunction(const FunctionBinding& function, const std::string& target, const std::string& returned)
    {
        luaDoc(conditionsNote(function.runtimeConditions));
        const std::vector<Parameter> parameters = parametersOf(function);
        std::string names;
        for (const Parameter& parameter : parameters)
        {
            mOut += fmt::format("---@param {}{} {}{}\n", parameter.name, parameter.optional ? "?" : "", parameter.type,
                                parameter.note.empty() ? "" : fmt::format(" {}", commentText(parameter.note)));
            appendListed(names, ", ", parameter.name);
        }
        if (returned != "nil")
        {
            mOut += "---@return " + returned + "\n";
        }
        if (target.find('[') != std::string::npos)
        {
            mOut += fmt::format("{} = function({}) end\n\n", target, names);
        }
        else
        {
            mOut += fmt::format("function {}({}) end\n\n", target, names);
        }
    }

    std::string luaSignature(const FunctionBinding& function, const std::string& returned) const
    {
        std::string out = "fun(";
        bool first = true;
        for (const Parameter& parameter : parametersOf(function))
        {
            out += fmt::format("{}{}{}: {}", first ? "" : ", ", parameter.name, parameter.optional ? "?" : "",
                               parameter.type);
            first = false;
        }
        return out + "): " + returned;
    }

    std::string luaPlaceholder(const entt::meta_type& type) const
    {
        switch (primitiveOf(type))
        {
        case Primitive::Bool:
            return "false";
        case Primitive::String:
            return "\"\"";
        case Primitive::None:
            return "{}";
        default:
            return "0";
        }
    }

    void luaShapeFields(const std::vector<PropertyBinding>& properties, bool optional)
    {
        for (const PropertyBinding& property : properties)
        {
            const std::string note = propertyNote(property, optional);
            mOut += fmt::format("---@field {}{} {}{}\n", luaField(property.name), optional ? "?" : "",
                                typeText(property.type), note.empty() ? "" : " " + note);
        }
    }

    void luaShapeValue(const std::string& name, const std::vector<PropertyBinding>& properties)
    {
        mOut += fmt::format("{} = {{ name = {}, fields = {{", luaKey("__module", name), literal(name));
        for (size_t index = 0; index < properties.size(); ++index)
        {
            mOut += (index == 0 ? " " : ", ") + literal(properties[index].name);
        }
        mOut += properties.empty() ? "} }\n\n" : " } }\n\n";
    }

    void luaClass(const ClassBinding& binding, size_t index)
    {
        const std::string instance = fmt::format("__object{}", index + 1);
        const std::string table = luaKey("__module", binding.name);
        const NamedType* base = binding.baseType ? named(binding.baseType) : nullptr;

        luaDoc(conditionsNote(binding.runtimeConditions));
        mOut +=
            "---@class " + luaTypeName(binding.name) + (base != nullptr ? " : " + luaTypeName(base->name) : "") + "\n";
        for (const PropertyBinding& property : binding.properties)
        {
            const std::string note = propertyNote(property);
            mOut += fmt::format("---@field {} {}{}\n", luaField(property.name), typeText(property.type),
                                note.empty() ? "" : " " + note);
        }
        for (const ConstantFactory& constant : binding.constants)
        {
            mOut += fmt::format("---@field {} {} constant\n", luaField(constant.name), typeText(constant.type));
        }
        mOut += "local " + instance + " = {}\n\n";
        for (const FunctionBinding& function : binding.functions)
        {
            if (isMethod(function))
            {
                const bool plain = isIdentifier(function.name) && !isLuaKeyword(function.name);
                luaFunction(function, plain ? instance + ":" + function.name : luaKey(instance, function.name),
                            returnTypeOf(function));
            }
        }

        // The class table: what `require` hands out under the class's name.
        const FunctionBinding* constructor = !binding.constructors.empty() ? &binding.constructors.front() : nullptr;
        bool staticNew = false;
        for (const FunctionBinding& function : binding.functions)
        {
            staticNew = staticNew || (!isMethod(function) && function.name == "new");
        }
        mOut += "---@class " + luaTypeName(binding.name) + ".class\n";
        if (constructor != nullptr)
        {
            mOut += "---@overload " + luaSignature(*constructor, binding.name) + "\n";
        }
        mOut += table + " = { __name = " + literal(binding.name) + " }\n\n";
        for (const ConstantFactory& constant : binding.constants)
        {
            mOut += "---@type " + typeText(constant.type) + "\n";
            mOut += luaKey(table, constant.name) + " = " + luaPlaceholder(constant.type) + "\n\n";
        }
        if (constructor != nullptr && !staticNew)
        {
            luaFunction(*constructor, table + ".new", binding.name);
        }
        for (const FunctionBinding& function : binding.functions)
        {
            if (!isMethod(function))
            {
                luaFunction(function, luaKey(table, function.name), returnTypeOf(function));
            }
        }
    }

    void writeLua()
    {
        const ModuleBinding& module = mModule;
        mOut += "---@meta\n";
        mOut += fmt::format("-- {} {}, as require({}) returns it to a script of the Lua runtime.\n",
                            commentText(module.descriptor.name), module.descriptor.version.toString(),
                            literal(module.descriptor.name));
        mOut += "-- Generated from the module's bindings; regenerate rather than edit.\n\n";
        mOut += "local __module = {}\n\n";
        for (size_t index = 0; index < module.classBindings.size(); ++index)
        {
            luaClass(module.classBindings[index], index);
        }
        for (const EnumBinding& binding : module.enumBindings)
        {
            const bool numeric = isNumericEnum(binding);
            mOut += "---@enum " + luaTypeName(binding.name) + "\n";
            mOut += luaKey("__module", binding.name) + " = {\n";
            for (const EnumValueBinding& value : binding.values)
            {
                mOut += fmt::format("    {} = {},\n", luaField(value.name),
                                    numeric ? std::to_string(enumNumber(value)) : literal(value.scriptValue));
            }
            mOut += "}\n\n";
        }
        for (const InterfaceBinding& binding : module.interfaceBindings)
        {
            mOut += "---@class " + luaTypeName(binding.name) + "\n";
            luaShapeFields(binding.properties, true);
            mOut += "\n";
            luaShapeValue(binding.name, binding.properties);
        }
        for (const ErrorBinding& binding : module.errorBindings)
        {
            mOut += "---@class " + luaTypeName(binding.name) + " : ScriptError\n";
            luaShapeFields(binding.properties, false);
            mOut += "\n";
            luaShapeValue(binding.name, binding.properties);
        }
        for (const FunctionBinding& function : module.functionBindings)
        {
            luaFunction(function, luaKey("__module", function.name), returnTypeOf(function));
        }
        for (const ConstantFactory& constant : module.constants)
        {
            mOut += "---@type " + typeText(constant.type) + "\n";
            mOut += luaKey("__module", constant.name) + " = " + luaPlaceholder(constant.type) + "\n\n";
        }
        for (const ObjectFactoryBinding& factory : module.objectFactories)
        {
            mOut += "--- Made when a script first reads it.\n";
            mOut += "---@type " + typeText(factory.type) + "\n";
            mOut += luaKey("__module", factory.name) + " = {}\n\n";
        }
        mOut += "return __module\n";
    }

    // ---- TypeScript ----

    std::string tsMember(const std::string& name) const
    {
        return isIdentifier(name) && !isTypeScriptReserved(name) ? name : literal(name);
    }

    void tsDoc(const std::string& indent, const std::vector<std::string>& lines)
    {
        std::vector<std::string> kept;
        for (const std::string& line : lines)
        {
            if (!line.empty())
            {
                kept.push_back(commentText(line));
            }
        }
        if (kept.empty())
        {
            return;
        }
        if (kept.size() == 1)
        {
            mOut += indent + "/** " + kept.front() + " */\n";
            return;
        }
        mOut += indent + "/**\n";
        for (const std::string& line : kept)
        {
            mOut += indent + " * " + line + "\n";
        }
        mOut += indent + " */\n";
    }

    std::vector<std::string> parameterDocs(const std::vector<Parameter>& parameters) const
    {
        std::vector<std::string> lines;
        for (const Parameter& parameter : parameters)
        {
            if (!parameter.note.empty())
            {
                lines.push_back("@param " + parameter.name + " " + parameter.note);
            }
        }
        return lines;
    }

    std::string tsParameters(const std::vector<Parameter>& parameters, bool noSelf) const
    {
        std::string out = noSelf ? "this: void" : "";
        for (const Parameter& parameter : parameters)
        {
            out += fmt::format("{}{}{}: {}", out.empty() ? "" : ", ", parameter.name, parameter.optional ? "?" : "",
                               parameter.type);
        }
        return out;
    }

    // `prefix` is "export function ", "static " or "" (a method, called with ':').
    void tsFunction(const std::string& indent, const std::string& prefix, const std::string& name,
                    const FunctionBinding& function, bool noSelf, const std::string& returned = {})
    {
        const std::vector<Parameter> parameters = parametersOf(function);
        std::vector<std::string> docs = parameterDocs(parameters);
        docs.insert(docs.begin(), conditionsNote(function.runtimeConditions));
        tsDoc(indent, docs);
        mOut += fmt::format("{}{}{}({}): {};\n", indent, prefix, name, tsParameters(parameters, noSelf),
                            returned.empty() ? returnTypeOf(function) : returned);
    }

    void tsProperty(const std::string& indent, const PropertyBinding& property, bool optional, bool readOnly = false)
    {
        tsDoc(indent, {propertyNote(property, !readOnly)});
        mOut += fmt::format("{}{}{}{}: {};\n", indent, property.setter == nullptr || readOnly ? "readonly " : "",
                            tsMember(property.name), optional ? "?" : "", typeText(property.type));
    }

    void tsClass(const ClassBinding& binding)
    {
        const std::string indent = "    ";
        const std::string inner = "        ";
        const NamedType* base = binding.baseType ? named(binding.baseType) : nullptr;
        // The constructor is the table's `new`: the constructor binding, or a static function of that name
        // that makes the class.
        const FunctionBinding* constructor = !binding.constructors.empty() ? &binding.constructors.front() : nullptr;
        for (const FunctionBinding& function : binding.functions)
        {
            if (!isMethod(function) && function.name == "new")
            {
                const bool makesClass =
                    function.function != nullptr && function.function->getReturnType() == binding.type;
                constructor = makesClass ? &function : nullptr;
            }
        }
        if (skippedInTypeScript(indent, binding.name))
        {
            return;
        }
        // Only instances inherit: the class table of a derived class holds its own statics alone.
        if (base != nullptr && isTypeScriptName(base->name))
        {
            mOut += fmt::format("{}export interface {} extends {} {{}}\n", indent, binding.name, typeName(*base));
        }
        std::vector<std::string> docs{conditionsNote(binding.runtimeConditions)};
        if (constructor != nullptr)
        {
            docs.push_back("@customConstructor " + binding.name + ".new");
        }
        tsDoc(indent, docs);
        mOut += fmt::format("{}export class {} {{\n", indent, binding.name);
        if (constructor != nullptr)
        {
            const std::vector<Parameter> parameters = parametersOf(*constructor);
            tsDoc(inner, parameterDocs(parameters));
            mOut += fmt::format("{}constructor({});\n", inner, tsParameters(parameters, false));
            bool staticNew = false;
            for (const FunctionBinding& function : binding.functions)
            {
                staticNew = staticNew || (!isMethod(function) && function.name == "new");
            }
            if (!staticNew)
            {
                // The constructor binding's callable returns a handle; the script gets the object.
                tsFunction(inner, "static ", "\"new\"", *constructor, true, binding.name);
            }
        }
        else
        {
            mOut += inner + "private constructor();\n";
        }
        mOut += inner + "static readonly __name: string;\n";
        for (const ConstantFactory& constant : binding.constants)
        {
            mOut += fmt::format("{}static readonly {}: {};\n", inner, tsMember(constant.name), typeText(constant.type));
            mOut += fmt::format("{}readonly {}: {};\n", inner, tsMember(constant.name), typeText(constant.type));
        }
        for (const PropertyBinding& property : binding.properties)
        {
            tsProperty(inner, property, false);
        }
        for (const FunctionBinding& function : binding.functions)
        {
            const bool method = isMethod(function);
            tsFunction(inner, method ? "" : "static ", tsMember(function.name), function, !method);
        }
        mOut += indent + "}\n";
    }

    void writeTypeScript()
    {
        const ModuleBinding& module = mModule;
        const std::string indent = "    ";
        mOut += fmt::format("// {} {}, as require({}) returns it to a script of the Lua runtime.\n",
                            commentText(module.descriptor.name), module.descriptor.version.toString(),
                            literal(module.descriptor.name));
        mOut += "// Generated from the module's bindings; regenerate rather than edit.\n";
        mOut += "// Methods are called with ':', functions with '.': this: void marks the latter.\n";
        mOut += fmt::format("declare module {} {{\n", literal(module.descriptor.name));
        for (const ClassBinding& binding : module.classBindings)
        {
            tsClass(binding);
        }
        for (const EnumBinding& binding : module.enumBindings)
        {
            if (skippedInTypeScript(indent, binding.name))
            {
                continue;
            }
            const bool numeric = isNumericEnum(binding);
            mOut += fmt::format("{}export enum {} {{\n", indent, binding.name);
            for (const EnumValueBinding& value : binding.values)
            {
                mOut += fmt::format("{}    {} = {},\n", indent, tsMember(value.name),
                                    numeric ? std::to_string(enumNumber(value)) : literal(value.scriptValue));
            }
            mOut += indent + "}\n";
        }
        for (const InterfaceBinding& binding : module.interfaceBindings)
        {
            if (skippedInTypeScript(indent, binding.name))
            {
                continue;
            }
            tsDoc(indent, {"A table of these fields; a field left out keeps the native default."});
            mOut += fmt::format("{}export interface {} {{\n", indent, binding.name);
            for (const PropertyBinding& property : binding.properties)
            {
                tsProperty(indent + "    ", property, true);
            }
            mOut += indent + "}\n";
            mOut += fmt::format("{}export const {}: {{ readonly name: string; readonly fields: string[] }};\n", indent,
                                binding.name);
        }
        for (const ErrorBinding& binding : module.errorBindings)
        {
            if (skippedInTypeScript(indent, binding.name))
            {
                continue;
            }
            tsDoc(indent, {"An error value with these fields, as `catch (e)` receives it."});
            mOut += fmt::format("{}export class {} implements ScriptError {{\n", indent, binding.name);
            mOut += indent + "    private constructor();\n";
            mOut += indent + "    static readonly fields: string[];\n";
            mOut += indent + "    readonly name: string;\n";
            mOut += indent + "    readonly message: string;\n";
            mOut += indent + "    readonly stack?: string;\n";
            for (const PropertyBinding& property : binding.properties)
            {
                if (property.name != "name" && property.name != "message" && property.name != "stack")
                {
                    tsProperty(indent + "    ", property, false, true);
                }
            }
            mOut += indent + "}\n";
        }
        for (const FunctionBinding& function : module.functionBindings)
        {
            if (!skippedInTypeScript(indent, function.name))
            {
                tsFunction(indent, "export function ", function.name, function, true);
            }
        }
        for (const ConstantFactory& constant : module.constants)
        {
            if (!skippedInTypeScript(indent, constant.name))
            {
                mOut += fmt::format("{}export const {}: {};\n", indent, constant.name, typeText(constant.type));
            }
        }
        for (const ObjectFactoryBinding& factory : module.objectFactories)
        {
            if (!skippedInTypeScript(indent, factory.name))
            {
                tsDoc(indent, {"Made when a script first reads it."});
                mOut += fmt::format("{}export const {}: {};\n", indent, factory.name, typeText(factory.type));
            }
        }
        mOut += "}\n";
    }

    const ModuleBinding& mModule;
    DeclarationFormat mFormat;
    std::unordered_map<entt::id_type, NamedType> mNamed;
    std::unordered_map<std::string, entt::meta_type> mNativeNames;
    std::string mOut;
};

constexpr const char* LUA_RUNTIME = R"lua(---@meta
-- What every context of the Lua runtime offers besides its modules.
-- Generated; regenerate rather than edit.

--- The fields every error value has; a module's error adds its own.
---@class ScriptError
---@field name string
---@field message string
---@field stack string?

--- A promise of the runtime: native code takes it for a promise or a future.
---@class Promise
---@field state "pending"|"fulfilled"|"rejected"
---@field value any
Promise = {}

---@return Promise
function Promise.new() end

---@param value any
---@return Promise
function Promise.resolved(value) end

--- Settles the promise; false when it was settled already.
---@param value any
---@return boolean
function Promise:resolve(value) end

---@param reason any
---@return boolean
function Promise:reject(reason) end

--- The returned promise settles with what the callback returns.
---@param onFulfilled? fun(value: any): any
---@param onRejected? fun(reason: any): any
---@return Promise
function Promise:next(onFulfilled, onRejected) end

--- Bytes that native code reads as a data buffer: `buffer[i]` for i in 1..#buffer, each 0..255.
---@class Buffer
---@field [integer] integer
---@operator len: integer
Buffer = {}

--- A buffer of `size` zero bytes, or of the bytes of a string.
---@param size integer|string 0..2^31-1
---@return Buffer
function Buffer.new(size) end

---@return string
function Buffer:toString() end
)lua";

constexpr const char* TYPESCRIPT_RUNTIME = R"ts(// What every context of the Lua runtime offers besides its modules.
// Generated; regenerate rather than edit.

/** The fields every error value has; `catch (e)` receives one. A module's error adds its own. */
interface ScriptError {
    readonly name: string;
    readonly message: string;
    readonly stack?: string;
}

/**
 * A promise of the runtime, the global `Promise` of Lua: native code takes it for a promise or a future.
 * TypeScript's own Promise is another thing, which TypeScriptToLua implements itself.
 * @customName Promise
 * @customConstructor Promise.new
 */
declare class ScriptPromise {
    constructor();
    static resolved(this: void, value?: unknown): ScriptPromise;
    readonly state: "pending" | "fulfilled" | "rejected";
    readonly value: unknown;
    /** Settles the promise; false when it was settled already. */
    resolve(value?: unknown): boolean;
    reject(reason?: unknown): boolean;
    /** The returned promise settles with what the callback returns. */
    next(
        onFulfilled?: (this: void, value: any) => unknown,
        onRejected?: (this: void, reason: any) => unknown
    ): ScriptPromise;
}

/**
 * Bytes that native code reads as a data buffer: `buffer[i]` for i in 1..size, each 0..255.
 * @customConstructor Buffer.new
 */
declare class Buffer {
    /** @param size 0..2^31-1 zero bytes, or the bytes of a string */
    constructor(size: number | string);
    [index: number]: number;
    toString(): string;
}
)ts";

std::string safePath(std::string_view name)
{
    std::string out;
    out.reserve(name.size());
    for (const char c : name)
    {
        const bool kept = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                          c == '-' || c == '@' || c == '/';
        out += kept ? c : '_';
    }
    // No component may climb out of the directory, nor start at the root.
    while (!out.empty() && out.front() == '/')
    {
        out.erase(0, 1);
    }
    return out.empty() ? "_" : out;
}

ResultAny writeFile(const std::filesystem::path& path, const std::string& text)
{
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    if (error)
    {
        return Error(fmt::format("cannot create {}: {}", path.parent_path().string(), error.message()));
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file)
    {
        return Error(fmt::format("cannot write {}", path.string()));
    }
    return ResultAny::makeResult<std::string>(path.string());
}
} // namespace
} // namespace internal

std::string writeModuleDeclarations(const ModuleBinding& module, DeclarationFormat format,
                                    std::span<const ModuleBinding> dependencies)
{
    return internal::DeclarationWriter(module, dependencies, format).write();
}

std::string writeRuntimeDeclarations(DeclarationFormat format)
{
    return internal::isLua(format) ? internal::LUA_RUNTIME : internal::TYPESCRIPT_RUNTIME;
}

std::string declarationFileName(std::string_view moduleName, DeclarationFormat format)
{
    std::string path = internal::safePath(moduleName);
    if (internal::isLua(format))
    {
        return path + ".lua";
    }
    std::string flat;
    for (const char c : path)
    {
        if (c != '@')
        {
            flat += c == '/' ? '-' : c;
        }
    }
    return (flat.empty() ? "_" : flat) + ".d.ts";
}

ResultAny writeDeclarationFiles(const std::filesystem::path& directory, std::span<const ModuleBinding> modules)
{
    for (const DeclarationFormat format : {DeclarationFormat::LuaAnnotations, DeclarationFormat::TypeScript})
    {
        // Two modules whose names differ only in what a file name cannot hold would overwrite each other, and
        // a module called "runtime" the runtime's file: refused before anything is written.
        const std::string runtimeFile = internal::isLua(format) ? "runtime.lua" : "runtime.d.ts";
        std::unordered_set<std::string> files{runtimeFile};
        for (const ModuleBinding& module : modules)
        {
            if (!files.insert(declarationFileName(module.descriptor.name, format)).second)
            {
                return Error(fmt::format("the declarations of {} would overwrite another file, {}",
                                         module.descriptor.name, declarationFileName(module.descriptor.name, format)));
            }
        }
    }
    for (const DeclarationFormat format : {DeclarationFormat::LuaAnnotations, DeclarationFormat::TypeScript})
    {
        const std::filesystem::path folder = directory / (internal::isLua(format) ? "lua" : "ts");
        ResultAny written = internal::writeFile(folder / (internal::isLua(format) ? "runtime.lua" : "runtime.d.ts"),
                                                writeRuntimeDeclarations(format));
        if (written.isError())
        {
            return written;
        }
        for (const ModuleBinding& module : modules)
        {
            written = internal::writeFile(folder / declarationFileName(module.descriptor.name, format),
                                          writeModuleDeclarations(module, format, modules));
            if (written.isError())
            {
                return written;
            }
        }
    }
    return ResultAny::makeResult<std::string>(directory.string());
}
} // namespace Scripting::Lua
