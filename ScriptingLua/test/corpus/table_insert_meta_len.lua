-- expect: error "watchdog"
-- insert shifts every element from a length the script chose.
return table.insert(setmetatable({}, {__len = function() return 1e12 end}), 1, "x")
