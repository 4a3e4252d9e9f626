-- expect: error any
error(setmetatable({}, {__tostring = function() while true do end end}))
