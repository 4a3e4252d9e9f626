-- expect: error any
return #Buffer.new(2^40)
