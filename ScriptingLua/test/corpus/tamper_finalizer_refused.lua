-- expect: error "finalizers"
setmetatable({}, {__gc = function() while true do end end})
