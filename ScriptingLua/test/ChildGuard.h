#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace LuaTest::Corpus
{
// How long a child may run before it counts as hung: 20 s, or LUA_CORPUS_GUARD_MS.
std::chrono::milliseconds hangGuard();

// Runs `body` in a child process and returns its report (empty: all well), or what became of the child: killed
// after `guard`, dead of a signal, ended without a report (a sanitizer's exit, for one). Under the leak
// checker, memory the child left unreachable is reported too.
std::string runGuarded(const std::function<std::string()>& body, std::chrono::milliseconds guard = hangGuard());
} // namespace LuaTest::Corpus
