-- expect: error any
error(setmetatable({}, {__tostring = function() return {} end}))
