-- expect: error any
error({message = setmetatable({}, {__tostring = function() while true do end end})})
