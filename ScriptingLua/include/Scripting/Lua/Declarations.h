#pragma once

#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/Runtime/ResultAny.h"

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace Scripting::Lua
{
/// What a declaration text is written for.
enum class DeclarationFormat : uint8_t
{
    /// A `---@meta` file of the Lua language server: Lua with annotations in comments.
    LuaAnnotations,
    /// A `.d.ts` file for TypeScript compiled to Lua with TypeScriptToLua.
    TypeScript,
};

/// Declares one resolved module version as a script of the Lua runtime sees it through `require`: names, value
/// types, read-only properties, optional arguments, enum values, and bounds and accepted strings as doc comments.
/// Only the records `module` holds are declared, so a binding built for another version declares that version.
///
/// Types bound by a module in `dependencies` (such as "@zentary/common") are named after that module's record;
/// any other native type the runtime cannot name is declared as `any`. The text refers to the runtime's globals
/// (`Promise`, `Buffer`, the error base) that writeRuntimeDeclarations declares.
std::string writeModuleDeclarations(const ModuleBinding& module, DeclarationFormat format,
                                    std::span<const ModuleBinding> dependencies = {});

/// Declares what every context of the Lua runtime offers besides its modules: `Promise`, `Buffer` and the fields
/// every error value has (`ScriptError`).
std::string writeRuntimeDeclarations(DeclarationFormat format);

/// Where the declarations of a module go, relative to the directory of their format: "@example/game.lua" for
/// the language server, which finds `require("@example/game")` by that path, and "example-game.d.ts" for
/// TypeScript. Characters that do not belong in a path become '_'.
std::string declarationFileName(std::string_view moduleName, DeclarationFormat format);

/// Writes `directory`/lua/ and `directory`/ts/, each with the runtime's declarations ("runtime.lua",
/// "runtime.d.ts") and one file per module of `modules`, every module naming the others' types. An Error value
/// names the file that could not be written, or the module whose file would overwrite another.
ResultAny writeDeclarationFiles(const std::filesystem::path& directory, std::span<const ModuleBinding> modules);
} // namespace Scripting::Lua
