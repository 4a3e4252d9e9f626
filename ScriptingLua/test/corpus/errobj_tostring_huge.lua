-- expect: error any
error(setmetatable({}, {__tostring = function() return string.rep("x", 3e7) end}))
