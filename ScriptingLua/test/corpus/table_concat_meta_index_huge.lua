-- expect: error any
-- Every element is a string, so the result only grows: stopped by the budget or by memory.
return #table.concat(setmetatable({}, {__index = function() return "xy" end}), "", 1, 1e12)
