-- expect: error "watchdog"
local a, b
function a() return b() end
function b() return a() end
return a()
