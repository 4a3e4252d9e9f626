-- expect: error any
error(setmetatable({}, {__tostring = function() error("again") end}))
