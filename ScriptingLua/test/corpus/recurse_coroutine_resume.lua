-- expect: ok
local function f() return coroutine.resume(coroutine.create(f)) end
return f()
