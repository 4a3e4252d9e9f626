-- expect: error any
-- Compiling runs no script code; a large chunk must still end within the budget or the memory limit.
local f = load(string.rep("x = 1 ", 3e6))
return f ~= nil
