-- TAVRIN-4GL in Neovim: the filetype "tavrin" for *.spl, and tavls, the language server, started
-- by Neovim's own client for every such buffer, one server per project root.
--
--   require('tavrin').setup({
--     cmd = { '/usr/tavrin/bin/tavls' },  -- default { 'tavls' }, found on PATH
--     settings = { includeDirectories = { 'inc' }, noDictionaries = true },
--   })
--
-- The root of a buffer is the nearest directory above it holding tavls.json or .git (else the
-- buffer's own directory). The settings go to the server as initializationOptions and in
-- workspace/didChangeConfiguration under "tavls"; a setting left out is taken from the root's
-- tavls.json, else from the environment Neovim was started in. Works with Neovim 0.7 and later:
-- vim.lsp.start where it exists, else the client is started and attached by hand.
local M = {}

local defaults = {
  cmd = { 'tavls' },
  settings = {},
  root_markers = { 'tavls.json', '.git' },
}
M.config = vim.deepcopy(defaults)

local function exists(path)
  return vim.loop.fs_stat(path) ~= nil
end

local function parent(dir)
  local up = vim.fn.fnamemodify(dir, ':h')
  if up == dir then return nil end
  return up
end

-- The project root of a file: the nearest directory holding one of the markers.
function M.root_dir(file, markers)
  markers = markers or M.config.root_markers
  local start = vim.fn.fnamemodify(file, ':p:h')
  local dir = start
  while dir do
    for _, marker in ipairs(markers) do
      if exists(dir .. '/' .. marker) then return dir end
    end
    dir = parent(dir)
  end
  return start
end

-- What vim.lsp.start is given for a buffer.
function M.client_config(bufnr)
  local file = vim.api.nvim_buf_get_name(bufnr)
  local settings = M.config.settings or {}
  return {
    name = 'tavls',
    cmd = M.config.cmd,
    root_dir = M.root_dir(file),
    init_options = settings,
    settings = { tavls = settings },
  }
end

-- Neovim 0.7 has no vim.lsp.start: one client per root, started once and attached to each
-- buffer under it.
local clients = {}
local function start_compat(config, bufnr)
  local id = clients[config.root_dir]
  if not id or not vim.lsp.get_client_by_id(id) then
    id = vim.lsp.start_client(config)
    if not id then return nil end
    clients[config.root_dir] = id
  end
  vim.lsp.buf_attach_client(bufnr, id)
  return id
end

local warned = false
function M.start(bufnr)
  bufnr = bufnr or vim.api.nvim_get_current_buf()
  local cmd = M.config.cmd[1]
  if vim.fn.executable(cmd) ~= 1 then
    if not warned then
      vim.notify('tavrin: the language server ' .. cmd .. " cannot be run: set cmd in require('tavrin').setup",
        vim.log.levels.WARN)
      warned = true
    end
    return nil
  end
  local config = M.client_config(bufnr)
  if vim.lsp.start then return vim.lsp.start(config, { bufnr = bufnr }) end
  return start_compat(config, bufnr)
end

function M.setup(opts)
  M.config = vim.tbl_deep_extend('force', vim.deepcopy(defaults), opts or {})
  local group = vim.api.nvim_create_augroup('tavrin', { clear = true })
  vim.api.nvim_create_autocmd({ 'BufNewFile', 'BufRead' }, {
    group = group,
    pattern = '*.spl',
    callback = function(args) vim.bo[args.buf].filetype = 'tavrin' end,
  })
  vim.api.nvim_create_autocmd('FileType', {
    group = group,
    pattern = 'tavrin',
    callback = function(args)
      vim.bo[args.buf].commentstring = '// %s'
      M.start(args.buf)
    end,
  })
end

return M
