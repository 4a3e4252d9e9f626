-- expect: ok 9000
-- Many coroutines alive at once, then all dropped: the table that counts them must give their room back.
local held = {}
for i = 1, 9000 do held[i] = coroutine.create(function() end) end
local made = #held
held = nil
collectgarbage()
return made
