-- expect: error any
Promise.new = function() while true do end end
local p = Promise.new()
