-- expect: ok 20000
-- Native code holds many script functions at once, then lets them all go: the table that keeps them for it
-- must give their room back.
local game = require('@example/game')
local e = game.Entity.new("crowded")
for i = 1, 20000 do e:onDamaged(function() end) end
e = nil
collectgarbage()
return 20000
