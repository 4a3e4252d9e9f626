-- A script with a mistake: damage needs an amount.
local game = require('@example/game')
local hero = game.Entity.new('hero')
local left = hero:damage()
return left
