-- expect: error any
local held = {}
for i = 1, 1e9 do held[i] = Promise.new() end
