-- expect: error any
local held = {}
for i = 1, 1e6 do held[i] = Buffer.new(1e6) end
