-- expect: error any
local function f() return coroutine.wrap(f)() end
return f()
