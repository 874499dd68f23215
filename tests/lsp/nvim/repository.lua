-- Neovim (0.7 API) as a real client of `tarnwick-md lsp` over a repository: in README.md, where
-- a link leads and who else links there, the diagnostics the server pushes, and how they change
-- when an edit breaks a link. Writes what it got as JSON. Run headless in the repository:
--   TARNWICK_MD=... LSP_TEST_OUT=out.json nvim --headless --clean -c 'luafile repository.lua'
local client = dofile(vim.fn.fnamemodify(debug.getinfo(1, "S").source:sub(2), ":h") .. "/client.lua")

client.main(function(out)
  vim.cmd("edit README.md")
  local server = client.start(vim.api.nvim_get_current_buf(), out)
  -- Line 2 is "See [the guide](docs/guide.md#install)."
  local on_link = { position = { line = 2, character = 6 } }
  out.definition = client.ask(server, "textDocument/definition", on_link)
  out.references = client.ask(server, "textDocument/references",
                              vim.tbl_extend("force", on_link, { context = { includeDeclaration = false } }))

  vim.api.nvim_buf_set_lines(server.buffer, -1, -1, false, { "", "[broken](docs/nowhere.md)" })
  local function diagnostics() return vim.diagnostic.get(server.buffer) end
  assert(vim.wait(client.timeout, function() return #diagnostics() > 0 end, 20), "no diagnostics came")
  out.diagnostics = {}
  for _, d in ipairs(diagnostics()) do
    table.insert(out.diagnostics, { line = d.lnum, code = d.code, message = d.message })
  end
  client.stop(server)
end)
