-- expect: error "watchdog"
local function it(s, c) return c + 1 end
for i in it, nil, 0 do end
