#include "LuaContext.h"

#include <fmt/format.h>

#include <cctype>
#include <cstring>
#include <exception>
#include <string_view>

namespace Scripting::Lua::internal
{
namespace
{
// Frames of a traceback; a deeper stack keeps its innermost frames only.
constexpr int MAX_TRACEBACK_FRAMES = 32;

// What the stack shows in place of a file and line for a function of native code.
constexpr std::string_view NATIVE = "native";

// The bound name ("demo.twice") of a native function on the stack, else the name Lua knows it by.
std::string nativeFrameName(const LuaContext& context, lua_State* state, lua_Debug& frame)
{
    std::string name = frame.name != nullptr ? frame.name : "<native>";
    if (!lua_checkstack(state, 2) || lua_getinfo(state, "f", &frame) == 0)
    {
        return name;
    }
    if (lua_getupvalue(state, -1, 1) != nullptr)
    {
        const void* upvalue = lua_islightuserdata(state, -1) ? lua_touserdata(state, -1) : nullptr;
        lua_pop(state, 1);
        // Only a pointer the context made is read: other native closures may hold any light userdata.
        for (const auto& plan : context.plans)
        {
            if (upvalue != nullptr && plan.get() == upvalue)
            {
                name = plan->displayName;
                break;
            }
        }
    }
    lua_pop(state, 1);
    return name;
}

// Native frames carry no file and line, which the parse of a stack line cannot know: it takes their names
// from the text.
void nameNativeFrames(Error& error)
{
    const std::string suffix = fmt::format(" ({})", NATIVE);
    std::string_view rest = *error.stack;
    for (CallStackEntry& entry : error.callStack)
    {
        const size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        constexpr std::string_view AT = "    at ";
        if (line.size() > AT.size() + suffix.size() && line.substr(0, AT.size()) == AT &&
            line.substr(line.size() - suffix.size()) == suffix)
        {
            entry.function = std::string(line.substr(AT.size(), line.size() - AT.size() - suffix.size()));
            entry.file = NATIVE;
            entry.line = -1;
        }
    }
}

const Error* errorOf(const ErrorBox& box)
{
    return box.error.try_cast<const Error>();
}

int errorIndex(lua_State* state)
{
    LuaContext& context = contextOf(state);
    ErrorBox* box = toErrorBox(state, 1);
    const Error* error = box != nullptr ? errorOf(*box) : nullptr;
    if (error == nullptr || lua_type(state, 2) != LUA_TSTRING)
    {
        lua_pushnil(state);
        return 1;
    }
    const std::string_view key = lua_tostring(state, 2);
    UnlimitedMemory unlimited(context);
    if (key == "name")
    {
        lua_pushlstring(state, error->name.data(), error->name.size());
        return 1;
    }
    if (key == "message")
    {
        lua_pushlstring(state, error->message.data(), error->message.size());
        return 1;
    }
    if (key == "stack")
    {
        if (error->stack.has_value())
        {
            lua_pushlstring(state, error->stack->data(), error->stack->size());
        }
        else
        {
            lua_pushnil(state);
        }
        return 1;
    }
    // The fields a module version shows of the error's type.
    if (const auto found = context.errorByType.find(box->error.type().info().hash());
        found != context.errorByType.end())
    {
        for (const PropertyBinding& property : found->second->properties)
        {
            if (property.name == key)
            {
                std::string failure;
                try
                {
                    const entt::meta_any value = property.getter->get(box->error.as_ref());
                    if (pushNative(context, state, value, failure) == PushStatus::Ok)
                    {
                        return 1;
                    }
                }
                catch (...)
                {
                }
                break;
            }
        }
    }
    lua_pushnil(state);
    return 1;
}

int errorToString(lua_State* state)
{
    ErrorBox* box = toErrorBox(state, 1);
    const Error* error = box != nullptr ? errorOf(*box) : nullptr;
    if (error == nullptr)
    {
        lua_pushliteral(state, "error");
        return 1;
    }
    std::string text;
    try
    {
        text = error->name.empty() ? error->message : error->name + ": " + error->message;
    }
    catch (...)
    {
    }
    UnlimitedMemory unlimited(contextOf(state));
    lua_pushlstring(state, text.data(), text.size());
    return 1;
}

int errorCollect(lua_State* state)
{
    if (ErrorBox* box = toErrorBox(state, 1))
    {
        box->seal = 0;
        box->~ErrorBox();
    }
    return 0;
}

// "name:12: text", as Lua words the errors of a chunk named "=name": the name and the line, if any.
bool parsePlace(const std::string& message, const std::string& sourceName, int& line)
{
    if (message.compare(0, sourceName.size(), sourceName) != 0 || message.size() <= sourceName.size() + 1 ||
        message[sourceName.size()] != ':')
    {
        return false;
    }
    size_t position = sourceName.size() + 1;
    int value = 0;
    size_t digits = 0;
    while (position < message.size() && message[position] >= '0' && message[position] <= '9' && digits < 9)
    {
        value = value * 10 + (message[position] - '0');
        ++position;
        ++digits;
    }
    if (digits == 0 || position >= message.size() || message[position] != ':')
    {
        return false;
    }
    line = value;
    return true;
}
} // namespace

void pushError(LuaContext& context, lua_State* state, ResultAny&& result)
{
    UnlimitedMemory unlimited(context);
    void* memory = lua_newuserdatauv(state, sizeof(ErrorBox), 0);
    auto* box = new (memory) ErrorBox();
    box->error = std::move(result).toAny();
    sealBox(*box);
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.errorMetatableRef);
    lua_setmetatable(state, -2);
}

ErrorBox* toErrorBox(lua_State* state, int index)
{
    if (lua_type(state, index) != LUA_TUSERDATA || lua_rawlen(state, index) < sizeof(ErrorBox))
    {
        return nullptr;
    }
    auto* box = static_cast<ErrorBox*>(lua_touserdata(state, index));
    return box->kind == BoxKind::Error ? box : nullptr;
}

void createErrorMetatable(LuaContext& context, lua_State* state)
{
    lua_createtable(state, 0, 5);
    lua_pushcfunction(state, &errorIndex);
    lua_setfield(state, -2, "__index");
    lua_pushcfunction(state, &errorToString);
    lua_setfield(state, -2, "__tostring");
    lua_pushcfunction(state, &errorCollect);
    lua_setfield(state, -2, "__gc");
    lua_pushliteral(state, "Error");
    lua_setfield(state, -2, "__name");
    // Scripts cannot reach or replace it.
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
    context.errorMetatableRef = luaL_ref(state, LUA_REGISTRYINDEX);

    lua_pushcfunction(state, &messageHandler);
    context.messageHandlerRef = luaL_ref(state, LUA_REGISTRYINDEX);
}

void captureTraceback(const LuaContext& context, lua_State* state, int firstLevel, std::string& traceback,
                      std::string& file, int& line)
{
    traceback.clear();
    file.clear();
    line = -1;
    try
    {
        lua_Debug frame;
        for (int level = firstLevel;
             level < firstLevel + MAX_TRACEBACK_FRAMES && lua_getstack(state, level, &frame) != 0; ++level)
        {
            if (lua_getinfo(state, "Sln", &frame) == 0)
            {
                break;
            }
            const char* name = frame.name;
            if (name == nullptr)
            {
                name = std::strcmp(frame.what, "main") == 0 ? "<main>" : "<anonymous>";
            }
            if (std::strcmp(frame.what, "C") == 0)
            {
                // Line -1 of "[C]" tells nobody anything; the binding's own name does.
                traceback += fmt::format("    at {} ({})\n", nativeFrameName(context, state, frame), NATIVE);
                continue;
            }
            traceback += fmt::format("    at {} ({}:{})\n", name, frame.short_src, frame.currentline);
            if (line < 0 && frame.currentline > 0)
            {
                file = frame.short_src;
                line = frame.currentline;
            }
        }
    }
    catch (...)
    {
        traceback.clear();
    }
}

int messageHandler(lua_State* state)
{
    LuaContext& context = contextOf(state);
    captureTraceback(context, state, 1, context.traceback, context.errorFile, context.errorLine);
    return 1;
}

void stopAtNextInstruction(LuaContext& context)
{
    // Native code may go on after a callback failed with the stop, and return into the script normally; without
    // this the script would run on to the next look of the hook, up to its whole interval, and a loop of long
    // native calls in it takes that long many times over.
    if (context.current != nullptr)
    {
        lua_sethook(context.current, &budgetHook, LUA_MASKCOUNT, 1);
        context.hookFreeThread = nullptr;
        context.hookHurried = true;
    }
}

int protectedCall(LuaContext& context, lua_State* state, int argumentCount, int resultCount)
{
    const int top = lua_gettop(state);
    const int base = top - argumentCount;
    if (atStackBottom(context, state, top))
    {
        return protectedCallWithHandler(context, state, base, argumentCount, resultCount, HANDLER_SLOT);
    }
    lua_rawgeti(state, LUA_REGISTRYINDEX, context.messageHandlerRef);
    lua_insert(state, base);
    const int status = protectedCallWithHandler(context, state, base + 1, argumentCount, resultCount, base);
    lua_remove(state, base);
    return status;
}

int nestedProtectedCall(LuaContext& context, lua_State* state, int function, int argumentCount, int resultCount,
                        int handler)
{
    if (context.stopped)
    {
        // A callback of a stopped entry: nothing more of the script runs.
        stopAtNextInstruction(context);
        lua_settop(state, function - 1);
        lua_pushlstring(state, context.stopMessage.data(), context.stopMessage.size());
        return LUA_ERRRUN;
    }
    context.traceback.clear();
    context.errorFile.clear();
    context.errorLine = -1;
    const int status = lua_pcall(state, argumentCount, resultCount, handler);
    if (context.stopped)
    {
        stopAtNextInstruction(context);
    }
    return status;
}

ResultAny takeError(LuaContext& context, lua_State* state, int status, const std::string& sourceName)
{
    ResultAny result;
    const bool stopped = context.stopped;
    if (stopped && context.entry != 0)
    {
        // A callback of a stopped entry, which native code may be calling for each of many listeners: the
        // error says what stopped the script, cheaply, and the entry's own error tells where when it returns.
        lua_pop(state, 1);
        context.traceback.clear();
        return ResultAny(Error(context.stopName, context.stopMessage));
    }
    if (stopped)
    {
        result = ResultAny(Error(context.stopName, context.stopMessage));
        if (context.entry == 0)
        {
            // Handed out: a later failure of this context is about itself.
            context.stopped = false;
        }
    }
    else if (status == LUA_ERRMEM ||
             (lua_type(state, -1) == LUA_TSTRING && std::strcmp(lua_tostring(state, -1), "not enough memory") == 0))
    {
        // Lua's own memory error, also after a protected call in between raised it again as an ordinary one.
        result =
            ResultAny(Error(fmt::format("Memory limit exceeded: the context may hold {} bytes", context.memory.limit)));
    }
    else if (ErrorBox* box = toErrorBox(state, -1))
    {
        result = ResultAny(Error(""));
        result.any() = box->error;
    }
    else if (lua_type(state, -1) == LUA_TSTRING)
    {
        result = ResultAny(Error(lua_tostring(state, -1)));
    }
    else if (lua_type(state, -1) == LUA_TTABLE && lua_checkstack(state, 1))
    {
        lua_pushliteral(state, "message");
        lua_rawget(state, -2);
        const bool hasMessage = lua_type(state, -1) == LUA_TSTRING;
        result = ResultAny(Error(hasMessage ? lua_tostring(state, -1) : "error object is a table"));
        lua_pop(state, 1);
    }
    else
    {
        result = ResultAny(Error(fmt::format("error object is {}", withArticle(describeValue(state, -1)))));
    }
    lua_pop(state, 1);

    if (Error* error = result.any().try_cast<Error>())
    {
        int line = -1;
        if (status == LUA_ERRSYNTAX && parsePlace(error->message, sourceName, line))
        {
            error->setStack(fmt::format("    at <main> ({}:{})\n", sourceName, line));
            error->fileName = sourceName;
        }
        else if (stopped && !context.stopTraceback.empty())
        {
            error->setStack(context.stopTraceback);
            error->fileName = context.stopFile.empty() ? sourceName : context.stopFile;
        }
        else if (!context.traceback.empty())
        {
            error->setStack(context.traceback);
            nameNativeFrames(*error);
            error->fileName = context.errorFile.empty() ? sourceName : context.errorFile;
        }
        else
        {
            error->fileName = sourceName;
        }
    }
    context.traceback.clear();
    return result;
}

std::string withArticle(std::string_view noun)
{
    const auto lower = [&](size_t index)
    { return index < noun.size() ? static_cast<char>(std::tolower(static_cast<unsigned char>(noun[index]))) : '\0'; };
    const char first = lower(0);
    // "an unsigned", but "a uint32" and "a unique": a "u" sounds as a vowel only before an "n" that starts no
    // "uni".
    const bool vowelSound = first == 'a' || first == 'e' || first == 'i' || first == 'o' ||
                            (first == 'u' && lower(1) == 'n' && lower(2) != 'i');
    std::string text = vowelSound ? "an " : "a ";
    text += noun;
    return text;
}

ResultAny failureToError(const ConversionFailure& failure, const std::string& subject, int32_t index)
{
    const std::string place = subject + failure.path;
    const uint32_t position = static_cast<uint32_t>(index);
    using Kind = ConversionFailure::Kind;
    switch (failure.kind)
    {
    case Kind::Missing:
        return InvalidArgumentError(fmt::format("{} needs {}, got nil", place, withArticle(failure.expected)),
                                    InvalidArgumentErrorType::Empty, position);
    case Kind::TypeMismatch:
        return InvalidArgumentError(fmt::format("{} for {}, got {}", failure.expected, place, failure.got),
                                    InvalidArgumentErrorType::TypeMismatch, position);
    case Kind::OutOfRange:
        return ArgumentOutOfBoundsError(place, index, failure.value, failure.minValue, failure.maxValue);
    case Kind::Destroyed:
        return InvalidArgumentError(fmt::format("{}: the {} was destroyed by native code", place, failure.expected),
                                    position);
    case Kind::TooDeep:
        return InvalidArgumentError(fmt::format("{}: nested deeper than {} levels", place, MAX_CONVERSION_DEPTH),
                                    position);
    case Kind::UnknownField:
    case Kind::Other:
    case Kind::None:
        break;
    }
    return InvalidArgumentError(
        fmt::format("{}: {}", place,
                    failure.detail.empty() ? "cannot become " + withArticle(failure.expected) : failure.detail),
        position);
}
} // namespace Scripting::Lua::internal
