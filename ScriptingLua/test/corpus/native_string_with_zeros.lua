-- expect: ok 5
local game = require('@example/game')
return #game.Entity.new("a\0b\0c").name
