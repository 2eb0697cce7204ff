-- Loads editors/nvim in the Neovim running this file and checks what it does for a buffer: the
-- filetype of a .spl file and of another, the comment string, the root found through tavls.json
-- or .git, the settings handed to the server, and a server that cannot be run reported once
-- without an error. Writes "ok" or the failure to $TAV_RESULT.
local dir = vim.env.TAV_WORK
local warnings = {}
vim.notify = function(msg, level)
  if level == vim.log.levels.WARN then table.insert(warnings, msg) end
end

local function expect(what, got, want)
  if got ~= want then error(what .. ': ' .. vim.inspect(got) .. ', not ' .. vim.inspect(want), 0) end
end

local ok, err = pcall(function()
  local tavrin = require('tavrin')
  tavrin.setup({ cmd = { dir .. '/no-such-tavls' }, settings = { includeDirectories = { 'inc' }, noDictionaries = true } })

  vim.cmd('edit ' .. dir .. '/proj/src/prog.spl')
  expect('filetype of a .spl file', vim.bo.filetype, 'tavrin')
  expect('comment string', vim.bo.commentstring, '// %s')
  local config = tavrin.client_config(0)
  expect('root through tavls.json', config.root_dir, dir .. '/proj')
  expect('server', config.cmd[1], dir .. '/no-such-tavls')
  expect('initializationOptions', vim.inspect(config.init_options), vim.inspect({ includeDirectories = { 'inc' }, noDictionaries = true }))
  expect('settings section', vim.inspect(config.settings.tavls), vim.inspect(config.init_options))

  vim.cmd('edit ' .. dir .. '/repo/a/b.spl')
  expect('root through .git', tavrin.client_config(0).root_dir, dir .. '/repo')
  vim.cmd('edit ' .. dir .. '/loose/c.spl')
  expect('root without a marker', tavrin.client_config(0).root_dir, dir .. '/loose')

  vim.cmd('edit ' .. dir .. '/notes.txt')
  expect('filetype of another file', vim.bo.filetype == 'tavrin', false)

  expect('warnings about the server', #warnings, 1)
  if not warnings[1]:find('no%-such%-tavls') then error('the warning does not name the server: ' .. warnings[1], 0) end
  expect('clients started', #vim.lsp.get_active_clients(), 0)
end)

local out = io.open(vim.env.TAV_RESULT, 'w')
out:write(ok and 'ok\n' or (tostring(err) .. '\n'))
out:close()
vim.cmd(ok and 'qall!' or 'cquit 1')
