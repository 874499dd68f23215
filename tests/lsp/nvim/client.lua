-- What the Neovim test scripts share: the server started and attached to a buffer as a client
-- does it, requests answered synchronously, and the run's findings written as JSON for the
-- test to read. A script ends with `client.main(function(out) ... end)`.
local M = { timeout = 20000 }

-- Starts `tarnwick-md lsp` (TARNWICK_MD) in the current folder, attached to `buffer`.
function M.start(buffer, out)
  local id = vim.lsp.start_client({
    name = "tarnwick-md",
    cmd = { os.getenv("TARNWICK_MD"), "lsp", "--stdio" },
    root_dir = vim.fn.getcwd(),
    on_error = function(code, err) table.insert(out.errors, tostring(code) .. ": " .. vim.inspect(err)) end,
  })
  assert(id and vim.lsp.buf_attach_client(buffer, id), "the client did not attach")
  local client = vim.lsp.get_client_by_id(id)
  assert(vim.wait(M.timeout, function() return client.initialized end, 20), "no initialize answer")
  return { id = id, client = client, buffer = buffer }
end

-- The result of a request about the buffer; `params` add to its textDocument.
function M.ask(server, method, params)
  params = vim.tbl_extend("force", { textDocument = vim.lsp.util.make_text_document_params(server.buffer) },
                          params or {})
  local answers, err = vim.lsp.buf_request_sync(server.buffer, method, params, M.timeout)
  assert(answers and answers[server.id], method .. ": " .. tostring(err))
  assert(not answers[server.id].err, method .. ": " .. vim.inspect(answers[server.id].err))
  return answers[server.id].result
end

function M.stop(server)
  vim.lsp.stop_client(server.id)
  assert(vim.wait(M.timeout, function() return server.client.is_stopped() end, 20), "the server did not stop")
end

-- Runs `run(out)`, then writes `out` (with the errors met) to LSP_TEST_OUT and quits.
function M.main(run)
  local out = { errors = {} }
  local ok, err = pcall(run, out)
  if not ok then table.insert(out.errors, tostring(err)) end
  local file = assert(io.open(os.getenv("LSP_TEST_OUT"), "w"))
  file:write(vim.fn.json_encode(out))
  file:close()
  vim.cmd("qa!")
end

return M
