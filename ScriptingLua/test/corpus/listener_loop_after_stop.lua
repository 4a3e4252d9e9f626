-- expect: error "watchdog"
local game = require('@example/game')
-- Listeners nest deep, and each level goes on calling the native function after the level inside it was
-- stopped: with many listeners every call is long native work, so the script must stop when a native call
-- returns into it, not at the next look of the hook.
local e = game.Entity.new("crowded")
for i = 1, 3000 do e:onDamaged(function() end) end
local depth = 0
e:onDamaged(function()
    depth = depth + 1
    if depth < 150 then e:damage(0) end
    for i = 1, 300 do e:damage(0) end
    depth = depth - 1
end)
e:damage(0)
return depth
