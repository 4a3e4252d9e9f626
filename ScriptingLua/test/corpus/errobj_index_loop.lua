-- expect: error any
error(setmetatable({}, {__index = function() while true do end end}))
