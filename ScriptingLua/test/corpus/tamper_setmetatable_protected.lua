-- expect: error "protected metatable"
local game = require('@example/game')
-- a class table carries a __metatable field
local t = setmetatable({}, {__metatable = "locked"})
setmetatable(t, {})
