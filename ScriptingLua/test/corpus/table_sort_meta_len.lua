-- expect: error "array too big"
table.sort(setmetatable({}, {__len = function() return math.maxinteger end}))
