-- Neovim (0.7 API) as a real client of `tarnwick-md lsp` over a repository: in README.md, where
-- a link leads and who else links there, the diagnostics the server pushes, and how they change
-- when an edit breaks a link. Writes what it got as JSON. Run headless in the repository:
--   TARNWICK_MD=... LSP_TEST_OUT=out.json nvim --headless --clean -c 'luafile repository.lua'
local out = { errors = {} }
local timeout = 20000

local function run()
  vim.cmd("edit README.md")
  local buffer = vim.api.nvim_get_current_buf()
  local client_id = vim.lsp.start_client({
    name = "tarnwick-md",
    cmd = { os.getenv("TARNWICK_MD"), "lsp" },
    root_dir = vim.fn.getcwd(),
    on_error = function(code, err) table.insert(out.errors, tostring(code) .. ": " .. vim.inspect(err)) end,
  })
  assert(client_id and vim.lsp.buf_attach_client(buffer, client_id), "the client did not attach")
  local client = vim.lsp.get_client_by_id(client_id)
  assert(vim.wait(timeout, function() return client.initialized end, 20), "no initialize answer")

  local function ask(method, line, character, extra)
    local params = vim.tbl_extend("force", {
      textDocument = vim.lsp.util.make_text_document_params(buffer),
      position = { line = line, character = character },
    }, extra or {})
    local answers, err = vim.lsp.buf_request_sync(buffer, method, params, timeout)
    assert(answers and answers[client_id], method .. ": " .. tostring(err))
    assert(not answers[client_id].err, method .. ": " .. vim.inspect(answers[client_id].err))
    return answers[client_id].result
  end
  -- Line 2 is "See [the guide](docs/guide.md#install)."
  out.definition = ask("textDocument/definition", 2, 6)
  out.references = ask("textDocument/references", 2, 6, { context = { includeDeclaration = false } })

  local function diagnostics() return vim.diagnostic.get(buffer) end
  assert(vim.wait(timeout, function() return client.initialized end, 20))
  vim.api.nvim_buf_set_lines(buffer, -1, -1, false, { "", "[broken](docs/nowhere.md)" })
  assert(vim.wait(timeout, function() return #diagnostics() > 0 end, 20), "no diagnostics came")
  out.diagnostics = {}
  for _, d in ipairs(diagnostics()) do
    table.insert(out.diagnostics, { line = d.lnum, code = d.code, message = d.message })
  end

  vim.lsp.stop_client(client_id)
  assert(vim.wait(timeout, function() return client.is_stopped() end, 20), "the server did not stop")
end

local ok, err = pcall(run)
if not ok then table.insert(out.errors, tostring(err)) end
local file = assert(io.open(os.getenv("LSP_TEST_OUT"), "w"))
file:write(vim.fn.json_encode(out))
file:close()
vim.cmd("qa!")
