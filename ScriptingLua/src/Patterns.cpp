// The string library's pattern functions and string.rep, with their work counted against the budget of the
// running entry. Lua's own versions run inside one C call, where no hook sees them: a pattern with a few
// lazy items over a long subject backtracks for hours.
#include "LuaContext.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <limits>

namespace Scripting::Lua::internal
{
namespace
{
constexpr int MAX_CAPTURES = 32;
// Nesting of the matcher: one level per capture and per item that may backtrack.
constexpr int MAX_DEPTH = 200;
// Matcher steps between two looks at the budget.
constexpr uint64_t PATTERN_PIECE = 4096;
// Bytes string.rep writes between two looks at the budget.
constexpr size_t REP_PIECE = 1024 * 1024;

constexpr ptrdiff_t CAPTURE_OPEN = -1;
constexpr ptrdiff_t CAPTURE_POSITION = -2;

struct Capture
{
    const char* start;
    ptrdiff_t length;
};

// Plain data only: a stop or a malformed pattern leaves the matcher by a long jump.
struct Matcher
{
    lua_State* state;
    LuaContext* context;
    const char* subject;
    const char* subjectEnd;
    const char* patternEnd;
    int depth;
    int captureCount;
    uint64_t steps;
    Capture captures[MAX_CAPTURES];
};

void reset(Matcher& matcher)
{
    matcher.depth = 0;
    matcher.captureCount = 0;
}

void step(Matcher& matcher, uint64_t units = 1)
{
    matcher.steps += units;
    if (matcher.steps >= PATTERN_PIECE)
    {
        const uint64_t spent = matcher.steps;
        matcher.steps = 0;
        spend(*matcher.context, matcher.state, spent);
    }
}

Matcher makeMatcher(lua_State* state, const char* subject, size_t subjectLength, const char* pattern,
                    size_t patternLength)
{
    Matcher matcher{};
    matcher.state = state;
    matcher.context = &contextOf(state);
    matcher.subject = subject;
    matcher.subjectEnd = subject + subjectLength;
    matcher.patternEnd = pattern + patternLength;
    return matcher;
}

// Past the single-character class that starts at `p`.
const char* classEnd(Matcher& matcher, const char* p)
{
    const char first = *p++;
    if (first == '%')
    {
        if (p >= matcher.patternEnd)
        {
            luaL_error(matcher.state, "malformed pattern (ends with '%%')");
        }
        return p + 1;
    }
    if (first != '[')
    {
        return p;
    }
    if (p < matcher.patternEnd && *p == '^')
    {
        ++p;
    }
    // The set's first character is itself even when it is ']'.
    for (bool leading = true;; leading = false)
    {
        if (p >= matcher.patternEnd)
        {
            luaL_error(matcher.state, "malformed pattern (missing ']')");
        }
        if (*p == ']' && !leading)
        {
            return p + 1;
        }
        if (*p == '%')
        {
            ++p;
            if (p >= matcher.patternEnd)
            {
                luaL_error(matcher.state, "malformed pattern (missing ']')");
            }
        }
        ++p;
    }
}

bool classMatches(unsigned char c, unsigned char letter)
{
    bool matches = false;
    switch (std::tolower(letter))
    {
    case 'a':
        matches = std::isalpha(c) != 0;
        break;
    case 'c':
        matches = std::iscntrl(c) != 0;
        break;
    case 'd':
        matches = std::isdigit(c) != 0;
        break;
    case 'g':
        matches = std::isgraph(c) != 0;
        break;
    case 'l':
        matches = std::islower(c) != 0;
        break;
    case 'p':
        matches = std::ispunct(c) != 0;
        break;
    case 's':
        matches = std::isspace(c) != 0;
        break;
    case 'u':
        matches = std::isupper(c) != 0;
        break;
    case 'w':
        matches = std::isalnum(c) != 0;
        break;
    case 'x':
        matches = std::isxdigit(c) != 0;
        break;
    case 'z':
        matches = c == 0;
        break;
    default:
        return letter == c;
    }
    return std::isupper(letter) != 0 ? !matches : matches;
}

// `open` at the set's '[', `close` at its ']'.
bool setMatches(unsigned char c, const char* open, const char* close)
{
    const char* p = open + 1;
    bool negated = false;
    if (*p == '^')
    {
        negated = true;
        ++p;
    }
    while (p < close)
    {
        if (*p == '%')
        {
            ++p;
            if (classMatches(c, static_cast<unsigned char>(*p)))
            {
                return !negated;
            }
            ++p;
        }
        else if (p + 2 < close && p[1] == '-')
        {
            if (static_cast<unsigned char>(p[0]) <= c && c <= static_cast<unsigned char>(p[2]))
            {
                return !negated;
            }
            p += 3;
        }
        else
        {
            if (static_cast<unsigned char>(*p) == c)
            {
                return !negated;
            }
            ++p;
        }
    }
    return negated;
}

bool singleMatches(const Matcher& matcher, const char* s, const char* p, const char* end)
{
    if (s >= matcher.subjectEnd)
    {
        return false;
    }
    const auto c = static_cast<unsigned char>(*s);
    switch (*p)
    {
    case '.':
        return true;
    case '%':
        return classMatches(c, static_cast<unsigned char>(p[1]));
    case '[':
        return setMatches(c, p, end - 1);
    default:
        return static_cast<unsigned char>(*p) == c;
    }
}

const char* match(Matcher& matcher, const char* s, const char* p);

const char* greedy(Matcher& matcher, const char* s, const char* p, const char* end)
{
    ptrdiff_t count = 0;
    while (singleMatches(matcher, s + count, p, end))
    {
        ++count;
        step(matcher);
    }
    for (; count >= 0; --count)
    {
        if (const char* found = match(matcher, s + count, end + 1))
        {
            return found;
        }
        step(matcher);
    }
    return nullptr;
}

const char* lazy(Matcher& matcher, const char* s, const char* p, const char* end)
{
    while (true)
    {
        if (const char* found = match(matcher, s, end + 1))
        {
            return found;
        }
        if (!singleMatches(matcher, s, p, end))
        {
            return nullptr;
        }
        ++s;
        step(matcher);
    }
}

const char* openCapture(Matcher& matcher, const char* s, const char* p, ptrdiff_t kind)
{
    if (matcher.captureCount >= MAX_CAPTURES)
    {
        luaL_error(matcher.state, "too many captures");
    }
    matcher.captures[matcher.captureCount] = Capture{s, kind};
    ++matcher.captureCount;
    const char* found = match(matcher, s, p);
    if (found == nullptr)
    {
        --matcher.captureCount;
    }
    return found;
}

const char* closeCapture(Matcher& matcher, const char* s, const char* p)
{
    int open = matcher.captureCount - 1;
    while (open >= 0 && matcher.captures[open].length != CAPTURE_OPEN)
    {
        --open;
    }
    if (open < 0)
    {
        luaL_error(matcher.state, "invalid pattern capture");
    }
    matcher.captures[open].length = s - matcher.captures[open].start;
    const char* found = match(matcher, s, p);
    if (found == nullptr)
    {
        matcher.captures[open].length = CAPTURE_OPEN;
    }
    return found;
}

const char* balanced(Matcher& matcher, const char* s, const char* p)
{
    if (p + 1 >= matcher.patternEnd)
    {
        luaL_error(matcher.state, "malformed pattern (missing arguments to '%%b')");
    }
    if (s >= matcher.subjectEnd || *s != p[0])
    {
        return nullptr;
    }
    int open = 1;
    for (const char* at = s + 1; at < matcher.subjectEnd; ++at)
    {
        step(matcher);
        if (*at == p[1])
        {
            if (--open == 0)
            {
                return at + 1;
            }
        }
        else if (*at == p[0])
        {
            ++open;
        }
    }
    return nullptr;
}

const char* backReference(Matcher& matcher, const char* s, char digit)
{
    const int index = digit - '1';
    if (index < 0 || index >= matcher.captureCount || matcher.captures[index].length == CAPTURE_OPEN)
    {
        luaL_error(matcher.state, "invalid capture index %%%d", index + 1);
    }
    const ptrdiff_t length = matcher.captures[index].length;
    if (length < 0 || matcher.subjectEnd - s < length)
    {
        return nullptr;
    }
    step(matcher, 1 + static_cast<uint64_t>(length) / 16);
    return std::memcmp(matcher.captures[index].start, s, static_cast<size_t>(length)) == 0 ? s + length : nullptr;
}

const char* matchHere(Matcher& matcher, const char* s, const char* p)
{
    while (true)
    {
        step(matcher);
        if (p == matcher.patternEnd)
        {
            return s;
        }
        switch (*p)
        {
        case '(':
            if (p + 1 < matcher.patternEnd && p[1] == ')')
            {
                return openCapture(matcher, s, p + 2, CAPTURE_POSITION);
            }
            return openCapture(matcher, s, p + 1, CAPTURE_OPEN);
        case ')':
            return closeCapture(matcher, s, p + 1);
        case '$':
            if (p + 1 == matcher.patternEnd)
            {
                return s == matcher.subjectEnd ? s : nullptr;
            }
            break;
        case '%':
            if (p + 1 < matcher.patternEnd)
            {
                const char next = p[1];
                if (next == 'b')
                {
                    s = balanced(matcher, s, p + 2);
                    if (s == nullptr)
                    {
                        return nullptr;
                    }
                    p += 4;
                    continue;
                }
                if (next == 'f')
                {
                    p += 2;
                    if (p >= matcher.patternEnd || *p != '[')
                    {
                        luaL_error(matcher.state, "missing '[' after '%%f' in pattern");
                    }
                    const char* end = classEnd(matcher, p);
                    const auto before = static_cast<unsigned char>(s == matcher.subject ? '\0' : s[-1]);
                    const auto here = static_cast<unsigned char>(s < matcher.subjectEnd ? *s : '\0');
                    if (setMatches(before, p, end - 1) || !setMatches(here, p, end - 1))
                    {
                        return nullptr;
                    }
                    p = end;
                    continue;
                }
                if (next >= '0' && next <= '9')
                {
                    s = backReference(matcher, s, next);
                    if (s == nullptr)
                    {
                        return nullptr;
                    }
                    p += 2;
                    continue;
                }
            }
            break;
        default:
            break;
        }
        const char* end = classEnd(matcher, p);
        const char quantifier = end < matcher.patternEnd ? *end : '\0';
        if (!singleMatches(matcher, s, p, end))
        {
            if (quantifier == '*' || quantifier == '?' || quantifier == '-')
            {
                p = end + 1;
                continue;
            }
            return nullptr;
        }
        switch (quantifier)
        {
        case '?':
            if (const char* found = match(matcher, s + 1, end + 1))
            {
                return found;
            }
            p = end + 1;
            continue;
        case '+':
            return greedy(matcher, s + 1, p, end);
        case '*':
            return greedy(matcher, s, p, end);
        case '-':
            return lazy(matcher, s, p, end);
        default:
            ++s;
            p = end;
            continue;
        }
    }
}

const char* match(Matcher& matcher, const char* s, const char* p)
{
    if (++matcher.depth > MAX_DEPTH)
    {
        luaL_error(matcher.state, "pattern too complex");
    }
    const char* found = matchHere(matcher, s, p);
    --matcher.depth;
    return found;
}

void pushCapture(Matcher& matcher, int index, const char* s, const char* e)
{
    if (index >= matcher.captureCount)
    {
        if (index != 0)
        {
            luaL_error(matcher.state, "invalid capture index %%%d", index + 1);
        }
        lua_pushlstring(matcher.state, s, static_cast<size_t>(e - s));
        return;
    }
    const Capture& capture = matcher.captures[index];
    if (capture.length == CAPTURE_OPEN)
    {
        luaL_error(matcher.state, "unfinished capture");
    }
    if (capture.length == CAPTURE_POSITION)
    {
        lua_pushinteger(matcher.state, static_cast<lua_Integer>(capture.start - matcher.subject) + 1);
        return;
    }
    lua_pushlstring(matcher.state, capture.start, static_cast<size_t>(capture.length));
}

// Pushes the captures, or the whole match when there are none and `s` is given.
int pushCaptures(Matcher& matcher, const char* s, const char* e)
{
    const int count = matcher.captureCount == 0 && s != nullptr ? 1 : matcher.captureCount;
    luaL_checkstack(matcher.state, count, "too many captures");
    for (int index = 0; index < count; ++index)
    {
        pushCapture(matcher, index, s, e);
    }
    return count;
}

size_t startOf(lua_Integer position, size_t length)
{
    if (position > 0)
    {
        return static_cast<size_t>(position);
    }
    if (position == 0 || position < -static_cast<lua_Integer>(length))
    {
        return 1;
    }
    return length + static_cast<size_t>(position) + 1;
}

bool hasSpecials(const char* pattern, size_t length)
{
    for (size_t index = 0; index < length; ++index)
    {
        if (std::strchr("^$*+?.([%-", pattern[index]) != nullptr && pattern[index] != '\0')
        {
            return true;
        }
    }
    return false;
}

// A plain search, counted: naive searching of a long needle in a long subject is quadratic.
const char* plainFind(lua_State* state, const char* subject, size_t length, const char* needle, size_t needleLength)
{
    if (needleLength == 0)
    {
        return subject;
    }
    if (needleLength > length)
    {
        return nullptr;
    }
    LuaContext& context = contextOf(state);
    uint64_t steps = 0;
    const char* last = subject + (length - needleLength);
    for (const char* at = subject; at <= last;)
    {
        const void* first = std::memchr(at, needle[0], static_cast<size_t>(last - at) + 1);
        if (first == nullptr)
        {
            return nullptr;
        }
        at = static_cast<const char*>(first);
        steps += 1 + needleLength / 16;
        if (steps >= PATTERN_PIECE)
        {
            spend(context, state, steps);
            steps = 0;
        }
        if (std::memcmp(at + 1, needle + 1, needleLength - 1) == 0)
        {
            return at;
        }
        ++at;
    }
    return nullptr;
}

int findOrMatch(lua_State* state, bool find)
{
    size_t length = 0;
    size_t patternLength = 0;
    const char* subject = luaL_checklstring(state, 1, &length);
    const char* pattern = luaL_checklstring(state, 2, &patternLength);
    const size_t init = startOf(luaL_optinteger(state, 3, 1), length);
    spend(contextOf(state), state, 1);
    if (init > length + 1)
    {
        luaL_pushfail(state);
        return 1;
    }
    if (find && (lua_toboolean(state, 4) != 0 || !hasSpecials(pattern, patternLength)))
    {
        const char* found = plainFind(state, subject + init - 1, length - init + 1, pattern, patternLength);
        if (found != nullptr)
        {
            lua_pushinteger(state, static_cast<lua_Integer>(found - subject) + 1);
            lua_pushinteger(state, static_cast<lua_Integer>(found - subject + static_cast<ptrdiff_t>(patternLength)));
            return 2;
        }
        luaL_pushfail(state);
        return 1;
    }
    const bool anchored = patternLength > 0 && *pattern == '^';
    if (anchored)
    {
        ++pattern;
        --patternLength;
    }
    Matcher matcher = makeMatcher(state, subject, length, pattern, patternLength);
    for (const char* start = subject + init - 1;; ++start)
    {
        reset(matcher);
        if (const char* end = match(matcher, start, pattern))
        {
            if (find)
            {
                lua_pushinteger(state, static_cast<lua_Integer>(start - subject) + 1);
                lua_pushinteger(state, static_cast<lua_Integer>(end - subject));
                return 2 + pushCaptures(matcher, nullptr, nullptr);
            }
            return pushCaptures(matcher, start, end);
        }
        if (anchored || start >= matcher.subjectEnd)
        {
            break;
        }
    }
    luaL_pushfail(state);
    return 1;
}

int stringFind(lua_State* state)
{
    return findOrMatch(state, true);
}

int stringMatch(lua_State* state)
{
    return findOrMatch(state, false);
}

// Where a gmatch iteration goes on; offsets into the subject.
struct IterationState
{
    size_t next;
    size_t lastMatch;
};

constexpr size_t NO_MATCH = std::numeric_limits<size_t>::max();

int gmatchStep(lua_State* state)
{
    size_t length = 0;
    size_t patternLength = 0;
    const char* subject = lua_tolstring(state, lua_upvalueindex(1), &length);
    const char* pattern = lua_tolstring(state, lua_upvalueindex(2), &patternLength);
    auto* iteration = static_cast<IterationState*>(lua_touserdata(state, lua_upvalueindex(3)));
    Matcher matcher = makeMatcher(state, subject, length, pattern, patternLength);
    for (size_t start = iteration->next; start <= length; ++start)
    {
        reset(matcher);
        const char* end = match(matcher, subject + start, pattern);
        if (end != nullptr && static_cast<size_t>(end - subject) != iteration->lastMatch)
        {
            iteration->next = iteration->lastMatch = static_cast<size_t>(end - subject);
            return pushCaptures(matcher, subject + start, end);
        }
    }
    iteration->next = length + 1;
    return 0;
}

int stringGmatch(lua_State* state)
{
    size_t length = 0;
    luaL_checklstring(state, 1, &length);
    luaL_checkstring(state, 2);
    size_t init = startOf(luaL_optinteger(state, 3, 1), length);
    if (init > length + 1)
    {
        init = length + 1;
    }
    lua_settop(state, 2);
    auto* iteration = static_cast<IterationState*>(lua_newuserdatauv(state, sizeof(IterationState), 0));
    iteration->next = init - 1;
    iteration->lastMatch = NO_MATCH;
    lua_pushcclosure(state, &gmatchStep, 3);
    return 1;
}

void addReplacement(Matcher& matcher, luaL_Buffer& buffer, const char* s, const char* e, int kind)
{
    lua_State* state = matcher.state;
    if (kind == LUA_TNUMBER || kind == LUA_TSTRING)
    {
        size_t length = 0;
        const char* replacement = lua_tolstring(state, 3, &length);
        step(matcher, 1 + length / 16);
        const char* end = replacement + length;
        for (const char* at = replacement; at < end; ++at)
        {
            if (*at != '%')
            {
                luaL_addchar(&buffer, *at);
                continue;
            }
            ++at;
            if (at < end && *at == '%')
            {
                luaL_addchar(&buffer, '%');
            }
            else if (at < end && *at == '0')
            {
                luaL_addlstring(&buffer, s, static_cast<size_t>(e - s));
            }
            else if (at < end && *at >= '1' && *at <= '9')
            {
                pushCapture(matcher, *at - '1', s, e);
                luaL_tolstring(state, -1, nullptr);
                lua_remove(state, -2);
                luaL_addvalue(&buffer);
            }
            else
            {
                luaL_error(state, "invalid use of '%%' in replacement string");
            }
        }
        return;
    }
    if (kind == LUA_TFUNCTION)
    {
        lua_pushvalue(state, 3);
        const int count = pushCaptures(matcher, s, e);
        lua_call(state, count, 1);
    }
    else
    {
        pushCapture(matcher, 0, s, e);
        lua_gettable(state, 3);
    }
    if (lua_toboolean(state, -1) == 0)
    {
        lua_pop(state, 1);
        luaL_addlstring(&buffer, s, static_cast<size_t>(e - s));
        return;
    }
    if (lua_isstring(state, -1) == 0)
    {
        luaL_error(state, "invalid replacement value (a %s)", luaL_typename(state, -1));
    }
    luaL_addvalue(&buffer);
}

int stringGsub(lua_State* state)
{
    size_t length = 0;
    size_t patternLength = 0;
    const char* subject = luaL_checklstring(state, 1, &length);
    const char* pattern = luaL_checklstring(state, 2, &patternLength);
    const int kind = lua_type(state, 3);
    const lua_Integer maximum = luaL_optinteger(state, 4, static_cast<lua_Integer>(length) + 1);
    luaL_argexpected(state, kind == LUA_TNUMBER || kind == LUA_TSTRING || kind == LUA_TFUNCTION || kind == LUA_TTABLE,
                     3, "string/function/table");
    const bool anchored = patternLength > 0 && *pattern == '^';
    if (anchored)
    {
        ++pattern;
        --patternLength;
    }
    Matcher matcher = makeMatcher(state, subject, length, pattern, patternLength);
    luaL_Buffer buffer;
    luaL_buffinit(state, &buffer);
    const char* at = subject;
    const char* lastMatch = nullptr;
    lua_Integer replaced = 0;
    while (replaced < maximum)
    {
        reset(matcher);
        const char* end = match(matcher, at, pattern);
        if (end != nullptr && end != lastMatch)
        {
            ++replaced;
            addReplacement(matcher, buffer, at, end, kind);
            at = lastMatch = end;
        }
        else if (at < matcher.subjectEnd)
        {
            luaL_addchar(&buffer, *at++);
        }
        else
        {
            break;
        }
        if (anchored)
        {
            break;
        }
    }
    luaL_addlstring(&buffer, at, static_cast<size_t>(matcher.subjectEnd - at));
    luaL_pushresult(&buffer);
    lua_pushinteger(state, replaced);
    return 2;
}

int stringRep(lua_State* state)
{
    size_t length = 0;
    size_t separatorLength = 0;
    const char* text = luaL_checklstring(state, 1, &length);
    const lua_Integer count = luaL_checkinteger(state, 2);
    const char* separator = luaL_optlstring(state, 3, "", &separatorLength);
    // An empty result takes no work, however many times it is repeated.
    if (count <= 0 || length + separatorLength == 0)
    {
        lua_pushliteral(state, "");
        return 1;
    }
    const size_t unit = length + separatorLength;
    constexpr size_t LARGEST = static_cast<size_t>(std::numeric_limits<int>::max()) * 4u;
    if (unit < length || unit > LARGEST / static_cast<lua_Unsigned>(count))
    {
        return luaL_error(state, "resulting string too large");
    }
    const size_t total = static_cast<size_t>(count) * unit - separatorLength;
    LuaContext& context = contextOf(state);
    spend(context, state, 1);
    luaL_Buffer buffer;
    char* out = luaL_buffinitsize(state, &buffer, total);
    // One copy of text and separator, then whole copies of what is written, until the whole is written.
    std::memcpy(out, text, length);
    size_t written = length;
    if (written < total)
    {
        std::memcpy(out + written, separator, separatorLength);
        written = unit;
    }
    const size_t largestPiece = std::max(unit, REP_PIECE - REP_PIECE % unit);
    while (written < total)
    {
        const size_t piece = std::min({written, total - written, largestPiece});
        std::memcpy(out + written, out, piece);
        written += piece;
        spend(context, state, piece / 16);
    }
    luaL_pushresultsize(&buffer, total);
    return 1;
}
} // namespace

void openPatternFunctions(lua_State* state)
{
    lua_getglobal(state, LUA_STRLIBNAME);
    const luaL_Reg functions[] = {{"find", &stringFind}, {"match", &stringMatch}, {"gmatch", &stringGmatch},
                                  {"gsub", &stringGsub}, {"rep", &stringRep},     {nullptr, nullptr}};
    luaL_setfuncs(state, functions, 0);
    lua_pop(state, 1);
}
} // namespace Scripting::Lua::internal
