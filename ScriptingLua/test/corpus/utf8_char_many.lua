-- expect: ok 30000
return #utf8.char(table.unpack(setmetatable({}, {__index = function() return 0x4F60 end}), 1, 10000))
