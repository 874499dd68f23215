-- Neovim (0.7 API) as a real client of `tarnwick-md lsp`: opens a Markdown file, starts and
-- attaches the server, asks for its document symbols, edits the buffer (an incremental change)
-- and asks again, then writes what it got as JSON. Run headless:
--   TARNWICK_MD=... LSP_TEST_FILE=doc.md LSP_TEST_OUT=out.json nvim --headless --clean -c 'luafile symbols.lua'
local out = { errors = {} }
local timeout = 20000

local function run()
  vim.cmd("edit " .. vim.fn.fnameescape(os.getenv("LSP_TEST_FILE")))
  local buffer = vim.api.nvim_get_current_buf()
  local client_id = vim.lsp.start_client({
    name = "tarnwick-md",
    cmd = { os.getenv("TARNWICK_MD"), "lsp", "--stdio" },
    root_dir = vim.fn.getcwd(),
    on_error = function(code, err) table.insert(out.errors, tostring(code) .. ": " .. vim.inspect(err)) end,
  })
  assert(client_id, "the client did not start")
  assert(vim.lsp.buf_attach_client(buffer, client_id), "the client did not attach")
  local client = vim.lsp.get_client_by_id(client_id)
  assert(vim.wait(timeout, function() return client.initialized end, 20), "no initialize answer")
  out.capabilities = client.server_capabilities or client.resolved_capabilities

  local function ask(method)
    local params = { textDocument = vim.lsp.util.make_text_document_params(buffer) }
    local answers, err = vim.lsp.buf_request_sync(buffer, method, params, timeout)
    assert(answers and answers[client_id], method .. ": " .. tostring(err))
    assert(not answers[client_id].err, method .. ": " .. vim.inspect(answers[client_id].err))
    return answers[client_id].result
  end
  out.symbols = ask("textDocument/documentSymbol")
  out.folds = ask("textDocument/foldingRange")
  -- An edit: a heading added at the end, and the first heading's text changed in place.
  vim.api.nvim_buf_set_lines(buffer, -1, -1, false, { "", "## Added in Neovim" })
  vim.api.nvim_buf_set_text(buffer, 0, 2, 0, 2, { "Edited " })
  out.symbols_after_edit = ask("textDocument/documentSymbol")

  vim.lsp.stop_client(client_id)
  assert(vim.wait(timeout, function() return client.is_stopped() end, 20), "the server did not stop")
end

local ok, err = pcall(run)
if not ok then table.insert(out.errors, tostring(err)) end
local file = assert(io.open(os.getenv("LSP_TEST_OUT"), "w"))
file:write(vim.fn.json_encode(out))
file:close()
vim.cmd("qa!")
