-- expect: ok
local function f() return pcall(f) end
return f()
