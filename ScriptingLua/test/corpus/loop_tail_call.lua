-- expect: error "watchdog"
local function f() return f() end
return f()
