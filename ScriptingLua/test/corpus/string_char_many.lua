-- expect: ok 20000
return #string.char(table.unpack(setmetatable({}, {__index = function() return 65 end}), 1, 20000))
