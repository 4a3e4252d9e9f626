-- expect: error "from close"
do
  local guard <close> = setmetatable({}, {__close = function() error("from close") end})
end
