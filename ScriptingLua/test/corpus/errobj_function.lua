-- expect: error any
error(function() while true do end end)
